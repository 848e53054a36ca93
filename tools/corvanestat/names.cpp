// Names of functions, plug-in calls, events and results.
#include "tools/corvanestat/names.hpp"

#include <array>
#include <cwchar>
#include <limits>

#include "fsmdc/fs_result.h"

namespace corvane::stat {
namespace {

constexpr std::array<std::string_view, COUNTERS_FUNCTIONS> kFunctions = {
    "other", "GetVolume", "GetInitialMap", "GetExtendedMap", "SetSize", "Close"};

constexpr std::array<std::string_view, COUNTERS_CALLS> kCalls = {
    "FS_GetVolCookie", "FS_GetVolByCookie", "FS_GetCookies",   "FS_GetLockedMap",
    "FS_UnlockMap",    "FS_SetFileSizes",   "FS_GetMaxLeases", "FS_GetPath"};

constexpr std::array kEvents = {
    EventName{COUNTERS_EVENT_LEASE_GRANTED, "leases_granted", "leases granted"},
    EventName{COUNTERS_EVENT_LEASE_RENEWED, "leases_renewed", "leases renewed"},
    EventName{COUNTERS_EVENT_LEASE_CLOSED, "leases_closed", "leases closed"},
    EventName{COUNTERS_EVENT_LEASE_EXPIRED, "leases_expired", "leases expired"},
    EventName{COUNTERS_EVENT_LEASE_RELEASED, "leases_released",
              "leases released by an administrator"},
    EventName{COUNTERS_EVENT_FILE_LOCKED, "files_locked", "files whose first map went out"},
    EventName{COUNTERS_EVENT_FILE_UNLOCKED, "files_unlocked", "files whose last map came back"},
    EventName{COUNTERS_EVENT_DUPLICATE_ANSWERED, "duplicates_answered",
              "repeated requests answered from store"},
    EventName{COUNTERS_EVENT_DUPLICATE_DROPPED, "duplicates_dropped",
              "repeated requests dropped, the first one under way"},
    EventName{COUNTERS_EVENT_RECEIVE_ERROR, "receive_errors", "failed receives"},
    EventName{COUNTERS_EVENT_SEND_ERROR, "send_errors", "replies not sent"},
    EventName{COUNTERS_EVENT_DESCRIPTOR_REQUEST, "descriptor_requests",
              "requests to the descriptor service"},
    EventName{COUNTERS_EVENT_LOG_LOST, "log_lost", "log messages lost"},
};

}  // namespace

std::string_view function_name(unsigned function)
{
    return kFunctions.at(function);
}
std::string_view call_name(unsigned call)
{
    return kCalls.at(call);
}

const EventName* event_names(std::size_t& count)
{
    count = kEvents.size();
    return kEvents.data();
}

std::string result_code(unsigned slot)
{
    const std::uint32_t code = counters_result_of_slot(slot);
    return code == std::numeric_limits<std::uint32_t>::max() ? "other" : std::to_string(code);
}

std::string result_text(unsigned slot)
{
    const std::uint32_t code = counters_result_of_slot(slot);
    const wchar_t* wide = FSERR_GetErrorString(code);
    if (wide == nullptr) return result_code(slot);
    std::string text;  // the texts are ASCII
    for (; *wide != L'\0'; ++wide) text += static_cast<char>(*wide);
    return text + " (" + result_code(slot) + ")";
}

}  // namespace corvane::stat
