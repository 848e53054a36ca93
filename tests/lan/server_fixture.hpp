// A server with settings of its own, senders, and replies that free themselves.
#ifndef CORVANE_TESTS_LAN_SERVER_FIXTURE_HPP
#define CORVANE_TESTS_LAN_SERVER_FIXTURE_HPP

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "lan/server.h"
#include "lan/tracker_list.hpp"
#include "osl/memory.h"
#include "tests/lan/message_bytes.hpp"

namespace lan_test {

struct FreeReply {
    void operator()(void* reply) const { OSL_Free(reply); }
};
using Reply = std::unique_ptr<void, FreeReply>;

inline DgramReplyAddr sender(std::uint16_t port, std::uint32_t address = 0x0A000001)
{
    DgramReplyAddr made{};
    made.socket = 5;
    made.sender.sin_family = AF_INET;
    made.sender.sin_port = htons(port);
    made.sender.sin_addr.s_addr = htonl(address);
    return made;
}

inline Bytes bytes_of(const Reply& reply)
{
    if (!reply) return {};
    const auto* bytes = static_cast<const unsigned char*>(reply.get());
    return Bytes(bytes, bytes + get_le32(bytes, kLength));
}

inline void free_entries(LanServer& server)
{
    for (LanTracker* entry = server.head.next; entry != &server.head;) {
        OSL_Free(entry->header);
        OSL_Free(entry->reply);
        OSL_Free(std::exchange(entry, entry->next));
    }
}

inline void free_server(LanServer* server)
{
    free_entries(*server);
    corvane::TrackerList::drop_index(*server);
    OSL_QuickLockDispose(&server->lock);
    OSL_Free(server);
}

class ServerTest : public testing::Test {
protected:
    void SetUp() override
    {
        unsetenv("TRACK_MESSAGES");
        unsetenv("MAX_TRACKED_MESSAGES");
        TrackMessages = 1;
        MaxTrack = 100;
        numDupsRepliedTo = 0;
        numDupsDropped = 0;
        ASSERT_EQ(LAN_InitServer(&server_), 0U);
    }
    // A server is never given up by the daemon; here its memory is.
    void TearDown() override { free_server(server_); }

    // The list from the oldest on, after a look at its back links.
    [[nodiscard]] std::vector<const LanTracker*> entries() const
    {
        std::vector<const LanTracker*> found;
        for (const LanTracker* entry = server_->head.next; entry != &server_->head;
             entry = entry->next) {
            EXPECT_EQ(entry->prev->next, entry);
            found.push_back(entry);
        }
        EXPECT_EQ(server_->head.prev, found.empty() ? &server_->head : found.back());
        return found;
    }
    [[nodiscard]] std::size_t complete_entries() const
    {
        std::size_t complete = 0;
        for (const LanTracker* entry : entries()) complete += entry->reply != nullptr;
        return complete;
    }
    // The identifiers' first bytes, oldest entry first.
    [[nodiscard]] std::vector<int> listed() const
    {
        std::vector<int> identifiers;
        for (const LanTracker* entry : entries()) {
            identifiers.push_back(static_cast<const unsigned char*>(entry->header)[kIdentifier]);
        }
        return identifiers;
    }

    Reply process(Bytes message, const DgramReplyAddr& from = sender(4000))
    {
        return Reply(LAN_ProcessMessage(message.data(), static_cast<std::uint32_t>(message.size()),
                                        server_, &from));
    }

    LanServer* server_ = nullptr;
};

}  // namespace lan_test
#endif
