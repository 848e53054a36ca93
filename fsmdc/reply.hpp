// Replies: the header that answers a request, the room in which a plug-in writes its record, and
// the length that the record gives the whole.
#ifndef CORVANE_FSMDC_REPLY_HPP
#define CORVANE_FSMDC_REPLY_HPP

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "fsmdc/loader.h"
#include "fsmdc/message_span.hpp"
#include "osl/bytes.hpp"

namespace corvane {

// A message to answer with, owned until it is handed to the caller.
using Reply = osl_ptr<void>;

// A field of a message at any address.
template <class T>
[[nodiscard]] T get(const void* message, std::size_t offset) noexcept
{
    return load<T>(bytes_at(message, offset));
}
template <class T>
void put(void* message, std::size_t offset, std::type_identity_t<T> value) noexcept
{
    store<T>(bytes_at(message, offset), value);
}
#define GET_FIELD(message, type, name) \
    ::corvane::get<decltype(type::name)>(message, offsetof(type, name))
#define PUT_FIELD(message, type, name, value) \
    ::corvane::put<decltype(type::name)>(message, offsetof(type, name), value)

// What a reply needs by what a plug-in wrote into its record. Nothing is believed yet.
struct ReplySize {
    std::int64_t record_bytes;  // what the plug-in says it used of its room
    std::int64_t reply_bytes;   // the reply's length
};

// A reply as long as any may get, all zeros but for its header, for a plug-in to write a record
// into. One a thread at a time. What is sent is a copy of its first bytes; nothing of it outlives
// the draft.
class ReplyDraft {
public:
    // `record_offset`: where the record lies. `kept_back_bytes`: how much of the longest reply the
    // plug-in does not get. `least_bytes`: the size when the longest reply is shorter than that.
    struct Shape {
        std::size_t record_offset;
        std::int32_t kept_back_bytes;
        std::int32_t least_bytes;
    };

    ReplyDraft(const void* request, const FsLibrary* library, const Shape& shape) noexcept;
    ~ReplyDraft();
    ReplyDraft(const ReplyDraft&) = delete;
    ReplyDraft& operator=(const ReplyDraft&) = delete;

    // False when memory was short: then nothing else may be asked.
    [[nodiscard]] explicit operator bool() const noexcept { return bytes_ != nullptr; }

    [[nodiscard]] void* record() const noexcept { return bytes_ + record_offset_; }
    [[nodiscard]] std::uint32_t room_bytes() const noexcept { return room_bytes_; }

    // What the record says now: of a map reply, of a volume reply.
    [[nodiscard]] ReplySize map_size() const noexcept;
    [[nodiscard]] ReplySize volume_size() const noexcept;

    // Remembers how far a plug-in says that it wrote. To be called after each call that writes a
    // record: the next draft of this thread begins with zeros because of it.
    void note_written(const ReplySize& size) const noexcept;

    // True when the plug-in had room for what it reported; logs it when not.
    [[nodiscard]] bool holds(const ReplySize& size) const noexcept;

    // Copies the first bytes into a reply of their own, its length set. Null when memory is short.
    [[nodiscard]] Reply copy(const ReplySize& size) const noexcept;

private:
    [[nodiscard]] std::int64_t error_text_units(std::size_t text_offset) const noexcept;

    std::byte* bytes_ = nullptr;
    std::size_t size_bytes_ = 0;
    mutable std::size_t written_bytes_ = 0;  // bookkeeping for the destructor alone
    std::size_t record_offset_;
    std::uint32_t room_bytes_ = 0;
};

}  // namespace corvane
#endif
