// The C functions of the client library over its C++ inside.
#include "client/client.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "client/disk_finder.hpp"
#include "client/exchange.hpp"
#include "client/failure.hpp"
#include "client/local_file.hpp"
#include "client/open_file.hpp"
#include "client/transfer.hpp"
#include "fsmdc/fs_result.h"

static_assert(CORVANE_E_BAD_REPLY == corvane::kBadReply && CORVANE_E_NO_DISK == corvane::kNoDisk &&
              CORVANE_E_DISK == corvane::kDiskError &&
              CORVANE_E_LEASE_ENDED == corvane::kLeaseEnded &&
              CORVANE_E_INTERRUPTED == corvane::kInterrupted &&
              CORVANE_E_BAD_ARGUMENT == corvane::kBadArgument &&
              CORVANE_E_LOCAL_FILE == corvane::kLocalFile &&
              CORVANE_E_NO_BLOCKS == corvane::kNoBlocks);

struct CorvaneClient {
    corvane::Endpoint endpoint;
    std::vector<std::string> disks;
    std::int32_t sg_chunk_blocks = 0;
    std::atomic<bool> stop{false};
    std::string error;
};

namespace corvane {
namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may write it");

// Runs `body` for a C caller: what it throws becomes a code and the client's error line.
template <class Body>
std::uint32_t answer(CorvaneClient* client, Body body) noexcept
{
    try {
        client->error.clear();
        body();
        return FS_E_SUCCESS;
    } catch (const Failure& failure) {
        client->error.assign(failure.what());
        return failure.code();
    } catch (const std::bad_alloc&) {
        return FS_E_OUT_OF_MEMORY;
    } catch (...) {
        return FS_E_MISC_ERROR;
    }
}

std::string text_of(const char* text)
{
    return text != nullptr ? text : "";
}

Exchange exchange_of(const CorvaneClient& client)
{
    return Exchange(client.endpoint, &client.stop);
}

TransferOptions transfer_of(const CorvaneClient& client)
{
    return {candidates_from(client.disks, client.sg_chunk_blocks), {}};
}

CorvaneVolumeDisk public_disk(const VolumeDisk& disk)
{
    CorvaneVolumeDisk out{};
    std::ranges::copy(disk.signature, out.signature);
    out.signature_bytes = disk.signature_bytes;
    out.signature_offset = disk.signature_offset;
    out.first_block = disk.first_block;
    out.block_count = disk.block_count;
    return out;
}

CorvaneExtent public_extent(const Extent& extent, const Volume& volume)
{
    CorvaneExtent out{extent.file_offset, extent.bytes, CORVANE_EXTENT_HOLE, 0, 0};
    if (extent.kind == Kind::kHole) return out;
    out.kind = extent.kind == Kind::kData ? CORVANE_EXTENT_DATA : CORVANE_EXTENT_UNWRITTEN;
    out.disk_index = static_cast<std::uint32_t>(extent.disk_index);
    out.disk_offset = volume.slice_start(extent.disk_index) + extent.slice_offset;
    return out;
}

// A second descriptor of the caller's open file, so that ownership stays where it is.
FileSource source_of(int descriptor)
{
    constexpr int kFirstNumber = 3;
    Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstNumber));
    struct stat status {};
    if (!copy.is_open() || fstat(copy.get(), &status) != 0) {
        fail_errno(kLocalFile, "the input cannot be used", errno, "give an open descriptor");
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(kLocalFile, "the input is not a regular file; copy it to one first");
    }
    return {std::move(copy), "the input"};
}

}  // namespace
}  // namespace corvane

using corvane::answer;

CorvaneClient* corvane_client_create(const CorvaneClientOptions* options) noexcept
{
    try {
        auto client = std::make_unique<CorvaneClient>();
        if (options == nullptr) return client.release();
        if (options->host != nullptr) client->endpoint.host = options->host;
        if (options->port != 0) client->endpoint.port = options->port;
        if (options->timeout_s != 0) client->endpoint.timeout_s = options->timeout_s;
        if (options->tries != 0) client->endpoint.tries = options->tries;
        client->sg_chunk_blocks = options->sg_chunk_blocks;
        for (std::size_t i = 0; options->disks != nullptr && i < options->disk_count; ++i) {
            client->disks.push_back(corvane::text_of(options->disks[i]));
        }
        return client.release();
    } catch (...) {
        return nullptr;
    }
}

void corvane_client_free(CorvaneClient* client) noexcept
{
    delete client;
}

const char* corvane_client_error(const CorvaneClient* client) noexcept
{
    return client->error.c_str();
}

void corvane_client_stop(CorvaneClient* client) noexcept
{
    client->stop.store(true);
}

uint32_t corvane_client_ping(CorvaneClient* client, int64_t* round_trip_us) noexcept
{
    return answer(client, [&] {
        const auto exchange = corvane::exchange_of(*client);
        const auto started = corvane::Clock::now();
        (void)exchange.ask(corvane::volume_request(corvane::Cookie{}));  // any answer will do
        const auto elapsed = corvane::Clock::now() - started;
        if (round_trip_us == nullptr) return;
        *round_trip_us = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
    });
}

uint32_t corvane_client_volume(CorvaneClient* client, const char* share, CorvaneVolume* volume,
                               CorvaneVolumeDisk* disks, size_t room) noexcept
{
    return answer(client, [&] {
        const auto exchange = corvane::exchange_of(*client);
        const auto found = corvane::ask_volume(exchange, corvane::text_of(share));
        *volume = {found.fs_type, found.glom_type, found.glom_info, found.block_bytes,
                   found.disks.size()};
        const auto count = static_cast<std::ptrdiff_t>(std::min(room, found.disks.size()));
        std::transform(found.disks.begin(), found.disks.begin() + count, disks,
                       corvane::public_disk);
    });
}

uint32_t corvane_client_map(CorvaneClient* client, const char* share, const char* path,
                            int64_t* file_size, CorvaneExtent* extents, size_t room,
                            size_t* extent_count) noexcept
{
    return answer(client, [&] {
        const auto exchange = corvane::exchange_of(*client);
        corvane::OpenFile file(exchange, corvane::text_of(share), corvane::text_of(path),
                               corvane::Intention::kRead);
        const auto found = file.whole_map(file.size());
        file.close();
        *file_size = file.size();
        *extent_count = found.size();
        for (std::size_t i = 0; i < std::min(room, found.size()); ++i) {
            extents[i] = corvane::public_extent(found[i], file.volume());
        }
    });
}

uint32_t corvane_client_read(CorvaneClient* client, const char* share, const char* path,
                             int descriptor) noexcept
{
    return answer(client, [&] {
        const auto exchange = corvane::exchange_of(*client);
        const auto options = corvane::transfer_of(*client);
        corvane::OpenFile file(exchange, corvane::text_of(share), corvane::text_of(path),
                               corvane::Intention::kRead);
        corvane::DescriptorSink sink(descriptor, "the output", &client->stop);
        corvane::read_file(exchange, file, sink, options);
    });
}

uint32_t corvane_client_write(CorvaneClient* client, const char* share, const char* path,
                              int descriptor) noexcept
{
    return answer(client, [&] {
        const auto exchange = corvane::exchange_of(*client);
        const auto options = corvane::transfer_of(*client);
        corvane::FileSource source = corvane::source_of(descriptor);
        corvane::OpenFile file(exchange, corvane::text_of(share), corvane::text_of(path),
                               corvane::Intention::kWrite);
        corvane::write_file(exchange, file, source, options);
    });
}

uint32_t corvane_client_set_size(CorvaneClient* client, const char* share, const char* path,
                                 int64_t bytes) noexcept
{
    return answer(client, [&] {
        if (bytes < 0) {
            throw corvane::Failure(corvane::kBadArgument,
                                   "a size cannot be negative; give 0 or more");
        }
        const auto exchange = corvane::exchange_of(*client);
        corvane::OpenFile file(exchange, corvane::text_of(share), corvane::text_of(path),
                               corvane::Intention::kWrite);
        file.set_size(bytes);
        file.close();
    });
}
