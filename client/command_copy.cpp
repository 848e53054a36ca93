// `corvane cat`, `corvane put` and `corvane size`: what reads and changes files.
#include <unistd.h>

#include <cstdio>

#include "client/command.hpp"
#include "client/failure.hpp"
#include "client/interrupt.hpp"
#include "client/local_file.hpp"
#include "client/open_file.hpp"
#include "client/terminal.hpp"
#include "client/text.hpp"
#include "client/transfer.hpp"

namespace corvane {
namespace {

TransferOptions transfer_options(const CommandOptions& options, ProgressLine& line)
{
    return {candidates_from(options.disks, options.sg_chunk_blocks),
            [&line](std::int64_t done, std::int64_t total) { line.show(done, total); }};
}

}  // namespace

void run_cat(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    ProgressLine line;
    const TransferOptions transfer = transfer_options(options, line);
    OpenFile file(exchange, options.share, options.path, Intention::kRead);
    // The output file is emptied only now that there is something to put into it.
    const Descriptor output =
        options.local_file.empty() ? Descriptor() : create_output(options.local_file);
    DescriptorSink sink(output.is_open() ? output.get() : STDOUT_FILENO,
                        output.is_open() ? options.local_file : "standard output",
                        &interrupt_flag());
    read_file(exchange, file, sink, transfer);
}

void run_put(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    // All input is at hand before the file is locked for others.
    FileSource source = open_input(options.local_file, &interrupt_flag());
    ProgressLine line;
    const TransferOptions transfer = transfer_options(options, line);
    OpenFile file(exchange, options.share, options.path, Intention::kWrite);
    write_file(exchange, file, source, transfer);
}

void run_size(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    OpenFile file(exchange, options.share, options.path, Intention::kWrite);
    file.set_size(options.size_bytes);
    file.close();
}

}  // namespace corvane
