// Addresses of senders and sockets.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>

#include "lan/dgram.h"

namespace {

DgramReplyAddr sender(const char* address, std::uint16_t port)
{
    DgramReplyAddr made{};
    made.socket = 9;
    made.sender.sin_family = AF_INET;
    made.sender.sin_port = htons(port);
    inet_pton(AF_INET, address, &made.sender.sin_addr);
    return made;
}

TEST(DgramAddress, CookieLayoutIsFixed)
{
    const DgramReplyAddr made = sender("10.1.2.200", 0x1234);
    unsigned char bytes[20];

    std::memcpy(bytes, &made, sizeof bytes);

    const unsigned char expected[20] = {9, 0, 0, 0, 2, 0, 0x12, 0x34, 10, 1, 2, 200};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
    EXPECT_EQ(sizeof made, 20U);
}

TEST(DgramAddress, ComparesAddressesAndNeverPorts)
{
    const DgramReplyAddr base = sender("10.1.2.3", 1000);
    const DgramReplyAddr other_port = sender("10.1.2.3", 1001);
    const DgramReplyAddr other_host = sender("10.1.2.4", 1000);
    DgramReplyAddr other_socket = base;
    other_socket.socket = 10;

    EXPECT_EQ(DGRAM_CompareAddresses(&base, &other_port), 0);
    EXPECT_EQ(DGRAM_CompareAddresses(&base, &other_socket), 0);
    EXPECT_EQ(DGRAM_CompareAddresses(&base, &other_host), 1);
    EXPECT_EQ(DGRAM_CompareAddresses(&other_host, &base), 1);
}

TEST(DgramAddress, WritesDottedText)
{
    const DgramReplyAddr small = sender("1.2.3.4", 0);
    const DgramReplyAddr large = sender("255.254.253.252", 0);
    char text[16];

    EXPECT_EQ(DGRAM_GetIPAddress(&small, text), text);
    EXPECT_STREQ(text, "1.2.3.4");
    EXPECT_STREQ(DGRAM_GetIPAddress(&large, text), "255.254.253.252");
}

TEST(DgramAddress, EphemeralPortIsTheBoundOne)
{
    std::int32_t socket = -1;
    ASSERT_EQ(makeListenerSocket(0, &socket), 0U);
    sockaddr_in local{};
    socklen_t size = sizeof local;
    ASSERT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&local), &size), 0);

    EXPECT_EQ(DGRAM_GetEphemeralPort(socket), ntohs(local.sin_port));
    EXPECT_NE(local.sin_port, 0);

    EXPECT_EQ(CloseSocket(socket), 0);
    EXPECT_EQ(DGRAM_GetEphemeralPort(socket), -1);
    EXPECT_EQ(CloseSocket(socket), -1);
}

TEST(DgramAddress, InitDoesNothing)
{
    EXPECT_EQ(DGRAM_Init(), 0U);
    EXPECT_EQ(gDgramWrongAddrRecv, 0);
    EXPECT_EQ(gDgramWrongAddrRecvFailures, 0);
}

}  // namespace
