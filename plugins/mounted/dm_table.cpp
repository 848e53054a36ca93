// Reads device-mapper tables from the kernel.
#include <fcntl.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "plugins/mounted/block_tree.hpp"
#include "plugins/mounted/descriptor.hpp"

namespace corvane::mounted {
namespace {

constexpr std::size_t kFirstRoom_bytes = 16384;
constexpr std::size_t kMostRoom_bytes = std::size_t{4} << 20;

// Reads the lines out of a buffer that the kernel filled; nothing is believed about its offsets.
std::vector<std::string> read_lines(const std::vector<char>& buffer, const dm_ioctl& head)
{
    std::vector<std::string> lines;
    const std::size_t end = std::min<std::size_t>(head.data_size, buffer.size());
    std::size_t at = head.data_start;
    for (std::uint32_t i = 0; i < head.target_count; ++i) {
        dm_target_spec entry{};
        if (at > end || end - at < sizeof entry) break;
        std::memcpy(&entry, buffer.data() + at, sizeof entry);
        const std::size_t text_at = at + sizeof entry;
        const char* const text = buffer.data() + text_at;
        const std::string arguments(text, strnlen(text, end - text_at));
        const std::string type(entry.target_type,
                               strnlen(entry.target_type, sizeof entry.target_type));
        std::string line = std::to_string(entry.sector_start) + " " + std::to_string(entry.length);
        line.append(" ").append(type).append(" ").append(arguments);
        lines.push_back(std::move(line));
        if (entry.next == 0) break;
        at = head.data_start + entry.next;
    }
    return lines;
}

std::vector<std::string> read_table(dev_t device, std::string& wrong)
{
    const Descriptor control(open("/dev/mapper/control", O_RDWR | O_CLOEXEC));
    if (!control.is_open()) {
        wrong = "/dev/mapper/control: " + std::generic_category().message(errno);
        return {};
    }
    for (std::size_t room = kFirstRoom_bytes; room <= kMostRoom_bytes; room *= 4) {
        std::vector<char> buffer(room);
        dm_ioctl head{};
        head.version[0] = DM_VERSION_MAJOR;
        head.data_size = static_cast<std::uint32_t>(room);
        head.data_start = sizeof head;
        head.flags = DM_STATUS_TABLE_FLAG;
        head.dev = device;
        std::memcpy(buffer.data(), &head, sizeof head);
        if (ioctl(control.get(), DM_TABLE_STATUS, buffer.data()) != 0) {
            wrong = "its table: " + std::generic_category().message(errno);
            return {};
        }
        std::memcpy(&head, buffer.data(), sizeof head);
        if ((head.flags & DM_BUFFER_FULL_FLAG) == 0) return read_lines(buffer, head);
    }
    wrong = "its table is too long";
    return {};
}

}  // namespace

BlockSystem this_system()
{
    BlockSystem system;
    system.read_table = read_table;
    return system;
}

}  // namespace corvane::mounted
