// The GetExtendedMap handler: maps more of a file that is under lease, and renews the lease.
#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease.h"
#include "fsmdc/map_file.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/reply.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"
#include "osl/counters.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

constexpr ReplyDraft::Shape kShape{SP_GET_EXTENDED_MAP_RECORD, SP_GET_EXTENDED_MAP_FIXED_BYTES,
                                   SP_GET_EXTENDED_MAP_FIXED_BYTES};

struct Outcome {
    std::uint32_t result;
    std::int32_t lease_ms = 0;
};

class ExtendedMap {
public:
    ExtendedMap(const void* request, std::uint32_t begin_ms) noexcept
        : request_(request),
          key_(GET_FIELD(request, GetExtendedMapRequest, key)),
          begin_ms_(begin_ms)
    {
    }

    // `reply` stays null when no record can be sent: then the fixed reply carries the outcome.
    [[nodiscard]] Outcome run(Reply& reply) noexcept
    {
        const std::uint32_t known =
            GetCookiesFromList(key_, file_.volume_cookie, file_.file_cookie);
        if (known != FS_E_SUCCESS) return {known};
        // Without a library: this reply's revision is the request's.
        const ReplyDraft draft(request_, nullptr, kShape);
        if (!draft) return {FS_E_OUT_OF_MEMORY};
        file_.library = GetLibrary(file_.volume_cookie);
        if (file_.library == nullptr) return seal(draft, FS_E_NO_LIBRARY, reply);
        const std::uint32_t resized = resize();
        if (resized != FS_E_SUCCESS) return seal(draft, resized, reply);
        const std::uint32_t mapped = map(draft);
        const std::int32_t lease_ms = CalcLease(GET_FIELD(request_, GetExtendedMapRequest, lease),
                                                resizes() ? kIntentionWrite : SP_INTENTION_READ,
                                                file_.library, file_.volume_cookie);
        if (mapped == FS_E_PARTIAL && draft.map_size().reply_bytes > maxDgramSize())
            return {mapped};
        const Outcome outcome = seal(draft, mapped, reply);
        // A partial map gives no renewed lease: the client asks for the rest first.
        return outcome.result == FS_E_SUCCESS ? renew(lease_ms) : outcome;
    }

private:
    [[nodiscard]] bool resizes() const noexcept
    {
        return GET_FIELD(request_, GetExtendedMapRequest, filesize) != -1 ||
               GET_FIELD(request_, GetExtendedMapRequest, allocation) != -1;
    }

    [[nodiscard]] std::uint32_t resize() const noexcept
    {
        if (!resizes()) return FS_E_SUCCESS;
        CORVANE_TRACE("FTX2022I GetExtendedMap calling FS_SetFileSize key %d\n",
                      static_cast<int>(key_));
        return set_file_sizes(file_, GET_FIELD(request_, GetExtendedMapRequest, filesize),
                              GET_FIELD(request_, GetExtendedMapRequest, allocation));
    }

    [[nodiscard]] std::uint32_t map(const ReplyDraft& draft) const noexcept
    {
        const auto length = GET_FIELD(request_, GetExtendedMapRequest, length);
        return map_file(
            file_,
            {GET_FIELD(request_, GetExtendedMapRequest, start), length == 0 ? -1 : length,
             GET_FIELD(request_, GetExtendedMapRequest, flag)},
            draft);
    }

    // Makes the draft the reply that carries `result`, or says why there can be none.
    [[nodiscard]] static Outcome seal(const ReplyDraft& draft, std::uint32_t result,
                                      Reply& reply) noexcept
    {
        const ReplySize size = draft.map_size();
        if (!draft.holds(size)) return {FS_E_MISC_ERROR};
        reply = draft.copy(size);
        return {reply != nullptr ? result : FS_E_OUT_OF_MEMORY};
    }

    [[nodiscard]] Outcome renew(std::int32_t lease_ms) const noexcept
    {
        const std::int32_t longer_ms = lengthen(lease_ms, begin_ms_);
        if (ChangeLeaseEntry(key_, static_cast<std::uint32_t>(longer_ms)) != 0) {
            return {FS_E_UNABLE_TO_SET_LEASE};
        }
        count_event(COUNTERS_EVENT_LEASE_RENEWED);
        return {FS_E_SUCCESS, longer_ms};
    }

    static constexpr std::int32_t kIntentionWrite = 0;

    const void* request_;
    std::uint32_t key_;
    std::uint32_t begin_ms_;
    MappedFile file_;
};

}  // namespace
}  // namespace corvane

extern "C" void* SP_LanGetExtendedMap(void* request, const DgramReplyAddr*) noexcept
{
    using namespace corvane;
    const std::uint32_t begin_ms = OSL_GetClock();
    SPSUP_TransLanGetExtendedMap(request);
    CORVANE_TRACE("FTX2021I SP_LanGetExtendedMap handler called key %d\n",
                  static_cast<int>(GET_FIELD(request, GetExtendedMapRequest, key)));
    SPSUP_DumpGetExtendedMapMsg(request);

    Reply reply;
    const Outcome outcome = ExtendedMap(request, begin_ms).run(reply);
    if (reply == nullptr) {
        reply.reset(SP_InitReply(request, SP_GET_EXTENDED_MAP_FIXED_BYTES, nullptr));
    }
    if (reply == nullptr) return nullptr;
    PUT_FIELD(reply.get(), GetExtendedMapReply, result, static_cast<std::int32_t>(outcome.result));
    PUT_FIELD(reply.get(), GetExtendedMapReply, lease, outcome.lease_ms);
    SPSUP_DumpGetExtendedMapReply(reply.get());
    return reply.release();
}
