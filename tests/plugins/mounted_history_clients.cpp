// What the clients of a history do: the calls that the daemon would make for them, and their direct
// I/O.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/plugins/mounted_history.hpp"

namespace corvane::test {
namespace {

std::string number(std::int64_t value)
{
    return std::to_string(value);
}

// A client that asks again names a range, longer than any file here: a map "to the end" counts as
// another client's.
constexpr std::int64_t kAgain = 1 << 20;

// The part of an extent that holds written blocks; none when it has no such.
std::int64_t data_bytes(const VerboseExtent& extent)
{
    return extent.validity == FS_VALIDITY_DATA ? extent.nBytes : 0;
}

}  // namespace

void History::client_step()
{
    const unsigned which = pick(clients_.size());
    Client& client = clients_[which];
    note("client " + number(which));
    if (client.file == nullptr) {
        client = Client{};
        client.file = random_file();
        return client.file != nullptr ? open_client(client) : void();
    }
    if (client.is_dead) return pick(3) == 0 ? end_lease(client) : void();
    switch (pick(12)) {
        case 0:
        case 1:
        case 2:
            return read_as(client);
        case 3:
            return allocate(client);
        case 4:
            return name_size(client);
        case 5:
            return close(client);
        case 6:
            note("  is killed");
            client.is_dead = pick(2) == 0;
            return;
        default:
            return client.may_write ? write_as(client) : allocate(client);
    }
}

// A refusal is always allowed, if it is one that a client understands.
void History::refused(std::uint32_t code)
{
    note("  refused: " + number(code));
    ++counts_.client_refusals;
    EXPECT_TRUE(code == FS_E_NO_DIRECT || code == FS_E_SHORT_ALLOC || code == FS_E_PRIVILEGE)
        << code;
}

bool History::take_map(Client& client, std::int64_t length)
{
    client.map = plugin_.map(client.cookies, 0, length);
    client.version = client.file->version;
    if (client.map.result == FS_E_SUCCESS) return true;
    refused(client.map.result);
    return false;
}

void History::open_client(Client& client)
{
    note("  opens " + client.file->name);
    client.cookies = plugin_.find(volume_.path(client.file->name));
    ASSERT_EQ(client.cookies.result, 0U);
    ++client.file->leases;
    if (!take_map(client, -1)) return end_lease(client);
    if (client.file->leases == 1) {
        EXPECT_EQ(client.map.info.fileSize, client.file->size);
    }
    read_as(client);
}

void History::read_as(Client& client)
{
    note("  reads " + client.file->name);
    const ModelFile& file = *client.file;
    const std::int64_t known = std::min(file.size, file.unknown_from);
    std::int64_t at = 0;
    for (const VerboseExtent& extent : client.map.extents) {
        if (data_bytes(extent) == 0 || extent.LogicalByteAddr >= known) continue;
        const std::int64_t end = std::min(extent.LogicalByteAddr + extent.nBytes, known);
        const auto first = static_cast<std::size_t>(extent.LogicalByteAddr);
        const auto count = static_cast<std::size_t>(end - extent.LogicalByteAddr);
        const std::string seen =
            volume_.client_read(extent.PhysicalByteAddr, extent.nBytes).substr(0, count);
        EXPECT_TRUE(seen == file.disk.substr(first, count))
            << "a client reads other bytes than those of " << file.name << " from " << first
            << " on";
        // What no block holds reads as zeros, unless another client has had blocks put there since.
        const std::string gap =
            file.disk.substr(static_cast<std::size_t>(at), first - static_cast<std::size_t>(at));
        if (client.version == file.version) {
            EXPECT_EQ(gap.find_first_not_of('\0'), std::string::npos)
                << "a client misses bytes before " << first;
        }
        at = end;
    }
    ++counts_.client_reads;
}

// A write map covers the allocation with whole, written blocks, in order. Behind it there may be
// holes, yet never blocks in which nobody would see what the client wrote.
void History::check_write_map(const Client& client, std::int64_t allocation)
{
    std::int64_t covered = 0;
    for (const VerboseExtent& extent : client.map.extents) {
        EXPECT_NE(extent.validity, FS_VALIDITY_UNWRITTEN);
        if (data_bytes(extent) == 0) continue;
        EXPECT_EQ(extent.nBytes % volume_.block_bytes(), 0);
        EXPECT_EQ(extent.PhysicalByteAddr % volume_.block_bytes(), 0);
        if (extent.LogicalByteAddr == covered) covered += extent.nBytes;
    }
    EXPECT_GE(covered, allocation) << to_text(client.map.extents);
}

// Sets what a client names, as the daemon does it for its requests; false when it is refused.
bool History::set_size(Client& client, std::int64_t size, std::int64_t allocation)
{
    ModelFile& file = *client.file;
    const std::uint32_t code = plugin_.set_sizes(client.cookies, size, allocation);
    if (code != 0) {
        refused(code);
        return false;
    }
    ++file.version;
    if (size < 0) return true;
    if (size < file.size) file.unknown_from = std::min(file.unknown_from, size);
    file.size = size;
    if (static_cast<std::int64_t>(file.disk.size()) < size)
        file.disk.resize(static_cast<std::size_t>(size), '\0');
    return true;
}

// Our client never asks for less than there is.
void History::allocate(Client& client)
{
    ModelFile& file = *client.file;
    const std::int64_t bytes = std::max({random_size(), file.size, client.map.info.allocation});
    note("  allocates " + number(bytes));
    if (!set_size(client, -1, bytes)) return;
    const std::int64_t block = volume_.block_bytes();
    const std::int64_t whole = (bytes + block - 1) / block * block;
    if (static_cast<std::int64_t>(file.disk.size()) < whole)
        file.disk.resize(static_cast<std::size_t>(whole), '\0');
    client.may_write = take_map(client, kAgain);
    if (!client.may_write) return close(client);
    check_write_map(client, bytes);
}

void History::write_as(Client& client)
{
    if (client.map.extents.empty()) return;
    const VerboseExtent& extent = client.map.extents[pick(client.map.extents.size())];
    const std::int64_t block = volume_.block_bytes();
    const std::int64_t blocks = data_bytes(extent) / block;
    if (blocks == 0) return;
    const std::int64_t first = pick(static_cast<std::size_t>(blocks));
    const std::int64_t count = 1 + pick(static_cast<std::size_t>(blocks - first));
    const std::string bytes = random_bytes(count * block);
    const std::int64_t at = extent.LogicalByteAddr + first * block;
    note("  writes " + client.file->name + " at " + number(at) + " for " + number(count * block));
    volume_.client_write(extent.PhysicalByteAddr + first * block, bytes);
    ASSERT_LE(static_cast<std::size_t>(at) + bytes.size(), client.file->disk.size());
    client.file->disk.replace(static_cast<std::size_t>(at), bytes.size(), bytes);
    ++counts_.client_writes;
}

void History::name_size(Client& client)
{
    const std::int64_t size = random_size();
    note("  names the size " + number(size));
    if (!set_size(client, size, -1)) return;
    if (!take_map(client, kAgain)) close(client);
}

// A close that names a size gives back what lies behind it.
void History::close(Client& client)
{
    const std::int64_t size = pick(2) == 0 ? -1 : random_size();
    note("  closes with " + number(size));
    if (size >= 0) (void)set_size(client, size, size);
    end_lease(client);
}

// The last lease of a file gives its map back.
void History::end_lease(Client& client)
{
    note("  lease ends");
    const FilePtr file = client.file;
    const Cookies cookies = client.cookies;
    client = Client{};
    if (--file->leases > 0) return;
    (void)plugin_.unlock(cookies);
    if (!file->name.empty()) learn(file);
    file->disk = file->content();
    file->unknown_from = kNever;
    ++file->version;
}

// Takes over what nothing was promised of.
void History::learn(const FilePtr& file)
{
    if (file->unknown_from >= file->size) return;
    const Descriptor descriptor = open_locally(file, O_RDONLY);
    if (!descriptor.is_open()) return;
    const std::string seen = read_at(descriptor.get(), 0, file->size + 1);
    compare(seen, *file, "after the last lease");
    if (static_cast<std::int64_t>(seen.size()) == file->size) file->disk = seen;
}

}  // namespace corvane::test
