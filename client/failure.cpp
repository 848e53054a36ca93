// Texts of result codes, and the advice that goes with them.
#include "client/failure.hpp"

#include <array>
#include <cstring>
#include <string_view>

#include "client/text.hpp"
#include "fsmdc/fs_result.h"
#include "lan/client.h"
#include "lan/dgram.h"

namespace corvane {
namespace {

struct CodeText {
    std::uint32_t code;
    std::string_view text;
};

// The transport's and this side's codes; the controller's have texts of their own.
constexpr std::array kLocalTexts{
    CodeText{LAN_E_MESSAGE_ID, "the reply belongs to another request"},
    CodeText{DGRAM_E_NO_SOCKET, "no datagram socket could be created"},
    CodeText{DGRAM_E_NO_HOST, "the host name could not be resolved"},
    CodeText{DGRAM_E_SEND, "the request could not be sent"},
    CodeText{DGRAM_E_RECEIVE, "receiving the reply failed"},
    CodeText{DGRAM_E_TIMEOUT, "no reply within the time limit"},
    CodeText{kBadReply, "the reply contradicts itself"},
    CodeText{kNoDisk, "a disk of the volume was not found"},
    CodeText{kDiskError, "a disk could not be used"},
    CodeText{kLeaseEnded, "the lease ended"},
    CodeText{kInterrupted, "interrupted"},
    CodeText{kBadArgument, "invalid argument"},
    CodeText{kLocalFile, "a local file could not be used"},
    CodeText{kNoBlocks, "the file has no blocks there"},
};

constexpr std::array kAdvice{
    CodeText{
        FS_E_BAD_PATH,
        "check the share name, or give the absolute path of the mount point on the controller"},
    CodeText{FS_E_BAD_COOKIE, "ask for the volume again by its share"},
    CodeText{FS_E_INVALID_MSG_LENGTH, "check that client and controller are of the same release"},
    CodeText{FS_UNKNOWN_FUNCTION, "check that client and controller are of the same release"},
    CodeText{FS_E_UNKNOWN_SHARE, "check the share name in the controller's smb.conf"},
    CodeText{FS_E_UNKNOWN_FILE, "check the path: the file must exist, the controller creates none"},
    CodeText{FS_E_NO_DIRECT, "use the file through its mounted file system"},
    CodeText{FS_E_PRIVILEGE, "check the rights of the file and of the controller's plug-in"},
    CodeText{FS_E_BAD_FILE, "check that the file still exists, then try again"},
    CodeText{FS_E_SHORT_ALLOC, "make room on the volume, then try again"},
    CodeText{
        FS_E_NO_LIBRARY,
        "check that the path exists (the controller creates no file) and that a plug-in in the "
        "controller's /usr/Corvane/lib serves its file system"},
    CodeText{FS_E_INVALID_PATHNAME, "give the path of a file inside the share"},
    CodeText{FS_E_INVALID_KEY, "the lease is gone: run the command again"},
    CodeText{FS_E_MISC_ERROR, "look into the controller's log"},
    CodeText{FS_E_UNABLE_TO_SET_LEASE, "the lease is gone: run the command again"},
    CodeText{LAN_E_MESSAGE_ID, "check that --host and --port name a metadata controller"},
    CodeText{DGRAM_E_NO_HOST, "check --host or CORVANE_HOST"},
    CodeText{DGRAM_E_SEND, "check the route to the controller"},
    CodeText{DGRAM_E_RECEIVE, "check --host and --port, and that corvaned runs there"},
    CodeText{DGRAM_E_TIMEOUT, "check --host and --port, and that corvaned runs there"},
};

template <std::size_t kCount>
std::string_view find_text(const std::array<CodeText, kCount>& table, std::uint32_t code)
{
    for (const auto& row : table) {
        if (row.code == code) return row.text;
    }
    return {};
}

}  // namespace

std::string describe_code(std::uint32_t code)
{
    std::string text(find_text(kLocalTexts, code));
    if (text.empty()) {
        const wchar_t* const known = FSERR_GetErrorString(code);
        text = known != nullptr ? utf8_from_wide(known) : "unknown result";
    }
    return text + " (code " + std::to_string(code) + ")";
}

std::string advice(std::uint32_t code)
{
    return std::string(find_text(kAdvice, code));
}

void fail(std::uint32_t code, const std::string& what)
{
    std::string line = what + ": " + describe_code(code);
    const std::string next = advice(code);
    if (!next.empty()) line += "; " + next;
    throw Failure(code, line);
}

void fail_errno(std::uint32_t code, const std::string& what, int errno_value,
                const std::string& advice_text)
{
    throw Failure(
        code, what + ": " +
                  std::string(strerrordesc_np(errno_value) != nullptr ? strerrordesc_np(errno_value)
                                                                      : "unknown error") +
                  "; " + advice_text);
}

}  // namespace corvane
