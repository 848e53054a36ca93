// Trace dumps of leases.
#include "fsmdc/lease.h"
#include "mdcmain/log.hpp"
#include "osl/byte_order.h"

namespace corvane {
namespace {

template <std::size_t Count>
void dump_cookie(const char* format_name, const std::uint8_t (&cookie)[Count]) noexcept
{
    char text[3 * Count + 1];
    corvane_trace("  %s:%s\n", format_name, bytesToString(cookie, Count, text));
}

}  // namespace
}  // namespace corvane

using corvane::dump_cookie;

extern "C" {

void DumpKey(const LeaseRecord* lease) noexcept
{
    if (!corvane::trace_wanted()) return;
    corvane_trace("Key Data for 0x%x\n", lease->key);
    corvane_trace("  intention: %d\n", lease->intention);
    corvane_trace("  creation time: %u,  duration %u\n", lease->creationTime, lease->duration);
    dump_cookie("volcookie", lease->volumeCookie);
    dump_cookie("filecookie", lease->fileCookie);
    dump_cookie("commcookie", lease->commCookie);
    dump_cookie("msgcookie", lease->messageCookie);
    corvane_trace("\n");
}

void FSMDCSP_DumpKeyList() noexcept
{
    if (!corvane::trace_wanted()) return;
    const LeaseRecord* const head = &leaseListHeadGlb;
    if (head->next == head) {
        corvane_dbg("FTX2014I Key list is empty\n");
        return;
    }
    corvane_dbg("Key List Start\n");
    for (const LeaseRecord* lease = head->next; lease != head; lease = lease->next) {
        corvane_dbg("  key: %d\n", static_cast<int>(lease->key));
        dump_cookie("volcookie", lease->volumeCookie);
        dump_cookie("filecookie", lease->fileCookie);
        corvane_dbg("\n");
    }
    corvane_dbg("Key List End\n");
}

}  // extern "C"
