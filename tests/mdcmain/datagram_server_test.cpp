// The datagram server: what it registers, what it sends, what a taken port does.
#include "mdcmain/datagram_server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <string>

#include "fsmdc/messages.h"
#include "fsmdc/service.h"
#include "mdcmain/segment.h"
#include "tests/harness/namespaces.hpp"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::read_file;
using corvane::test::status_of_child;
using ::testing::EndsWith;

constexpr char kLog[] = "/usr/Corvane/mclog0";
constexpr std::uint16_t kPort = 5501;

// A client of the server in this process.
class Client {
public:
    Client() : socket_(socket(AF_INET, SOCK_DGRAM, 0))
    {
        address_.sin_family = AF_INET;
        address_.sin_port = htons(kPort);
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{.tv_sec = 20, .tv_usec = 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~Client() { close(socket_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    template <class Request>
    [[nodiscard]] std::string ask(const Request& request)
    {
        std::array<char, 65536> answer{};
        EXPECT_EQ(sendto(socket_, &request, sizeof request, 0,
                         reinterpret_cast<const sockaddr*>(&address_), sizeof address_),
                  static_cast<ssize_t>(sizeof request));
        const ssize_t bytes = recv(socket_, answer.data(), answer.size(), 0);
        return bytes < 0 ? "" : std::string(answer.data(), static_cast<std::size_t>(bytes));
    }

private:
    int socket_;
    sockaddr_in address_{};
};

TEST(DgramServerTest, RegistersItsHandlersAndAnswersDatagrams)
{
    in_private_machine([] {
        corvane::harness::raise_loopback();
        fused_mapShared();
        fused_setDgram(2);

        ASSERT_EQ(DgramServer(kPort), 0);

        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->compare_addresses, DGRAM_CompareAddresses);
        EXPECT_EQ(info->request_room, LAN_REQUEST_ROOM);
        EXPECT_EQ(info->handlers[0], nullptr);
        EXPECT_EQ(info->handlers[1], SP_LanGetVolume);
        EXPECT_EQ(info->handlers[2], SP_LanGetInitialMap);
        EXPECT_EQ(info->handlers[3], SP_LanGetExtendedMap);
        EXPECT_EQ(info->handlers[4], SP_LanSetSize);
        EXPECT_EQ(info->handlers[5], SP_LanClose);
        EXPECT_EQ(info->handlers[6], nullptr);

        CloseRequest request{};
        request.header.endian = 1;
        request.header.functionCode = SP_CLOSE;
        request.header.length = sizeof request;
        request.key = 99;
        const std::string answer = Client().ask(request);
        ASSERT_EQ(answer.size(), sizeof(CloseReply));
        CloseReply reply{};
        std::memcpy(&reply, answer.data(), sizeof reply);
        EXPECT_EQ(reply.header.functionCode, -SP_CLOSE);
        EXPECT_EQ(reply.header.length, sizeof reply);
    });
}

TEST(DgramServerTest, AMessageWithoutAnAnswerSendsNothing)
{
    in_private_machine([] {
        fused_mapShared();
        ASSERT_EQ(LAN_InitServer(&info), 0U);
        info->handlers[7] = [](void*, const DgramReplyAddr*) -> void* { return nullptr; };
        std::array<unsigned char, 65536> message{};
        LanHeader header{};
        header.endian = 1;
        header.functionCode = 7;
        header.length = sizeof header;
        std::memcpy(message.data(), &header, sizeof header);
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends.data()), 0);
        DgramReplyAddr sender{.socket = ends[0], .sender = {}};

        EXPECT_EQ(DgramServer_MessageHandler(message.data(), sizeof header, &sender, info), 0);

        EXPECT_EQ(recv(ends[1], message.data(), message.size(), MSG_DONTWAIT), -1);
    });
}

TEST(DgramServerTest, ATakenPortEndsTheProcessWithItsMessage)
{
    in_private_machine([] {
        fused_mapShared();
        const int taken = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPort);
        ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

        EXPECT_EQ(status_of_child([] { DgramServer(kPort); }), 1);

        EXPECT_THAT(read_file(kLog),
                    EndsWith("FTX1194W DGRAM_BindListener failed 1104.  Perhaps another "
                             "corvaned is running.\n"));
    });
}

}  // namespace
