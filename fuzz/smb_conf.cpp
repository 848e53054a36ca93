// smb.conf as anybody may have written it: a share's path is a piece of the file, or there is none.
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mdcmain/segment.h"
#include "osl/descriptor.hpp"
#include "osl/share_name.h"

namespace {

// A segment of this process's own, its log kept in its ring: the machine's is left alone.
CorvaneSegment g_segment;

int parse(std::string_view contents, std::array<char, 256>& path)
{
    const corvane::Descriptor file(memfd_create("smb.conf", MFD_CLOEXEC));
    if (write(file.get(), contents.data(), contents.size()) !=
        static_cast<ssize_t>(contents.size())) {
        std::abort();
    }
    const std::string name = "/proc/self/fd/" + std::to_string(file.get());
    return parseSmbConfFile(name.c_str(), "no such user", path.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fs = &g_segment;
    fs->logLevel = 1;
    fs->logMode = 2;
    const std::string_view contents(reinterpret_cast<const char*>(data), size);
    std::array<char, 256> path{"untouched"};

    const int result = parse(contents, path);

    const std::string_view found = path.data();
    const bool is_piece =
        found.empty() || (found.front() == '/' && contents.find(found) != std::string_view::npos);
    if (result == 0 ? !is_piece : found != "untouched") std::abort();
    return 0;
}
