// A hash table of records that carry their own links. It grows by one bucket at a time (linear
// hashing), so no insertion ever pays for moving everything, and it never fails: when memory for
// more buckets is short its chains get longer instead. The caller's lock guards it.
#ifndef CORVANE_FSMDC_CHAIN_TABLE_HPP
#define CORVANE_FSMDC_CHAIN_TABLE_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "osl/bytes.hpp"
#include "osl/memory.h"

namespace corvane {

// `Links` says how to reach a record's link and hash: static Record*& next(Record&), static
// uint64_t hash(const Record&). Records per bucket: kLoad when the table is full.
template <class Record, class Links>
class ChainTable {
public:
    constexpr ChainTable() noexcept = default;
    ChainTable(const ChainTable&) = delete;
    ChainTable& operator=(const ChainTable&) = delete;

    // Returns the record of this hash for which `is_wanted(record)` holds, or null.
    template <class Predicate>
    [[nodiscard]] Record* find(std::uint64_t hash, Predicate is_wanted) const noexcept
    {
        Record* record = bucket(index_of(hash));
        while (record != nullptr && !is_wanted(*record)) record = Links::next(*record);
        return record;
    }

    void insert(Record& record, std::uint64_t hash) noexcept
    {
        if (count_ >= Links::kLoad * buckets_) split_one();
        Record*& head = bucket(index_of(hash));
        Links::next(record) = head;
        head = &record;
        ++count_;
    }

    // `record` is in the table.
    void remove(Record& record, std::uint64_t hash) noexcept
    {
        link_to(record, hash) = Links::next(record);
        --count_;
    }

    // Puts `successor`, of the same hash, in the place of `record`.
    void replace(Record& record, Record& successor, std::uint64_t hash) noexcept
    {
        link_to(record, hash) = &successor;
        Links::next(successor) = Links::next(record);
    }

    [[nodiscard]] std::size_t count() const noexcept { return count_; }

    // Forgets all records; they stay whose they were. The buckets stay too.
    void clear() noexcept
    {
        for (std::size_t i = 0; i < buckets_; ++i) bucket(i) = nullptr;
        count_ = 0;
    }

private:
    static constexpr std::size_t kSegmentBuckets = 512;  // one page of pointers
    using Segment = Record* [kSegmentBuckets];

    [[nodiscard]] std::size_t index_of(std::uint64_t hash) const noexcept
    {
        const std::size_t index = hash & (2 * half_ - 1);
        return index < buckets_ ? index : index - half_;
    }

    [[nodiscard]] Record*& bucket(std::size_t index) const noexcept
    {
        if (index < kSegmentBuckets) return first_[index];
        return (*segments_[index / kSegmentBuckets - 1])[index % kSegmentBuckets];
    }

    [[nodiscard]] Record*& link_to(const Record& record, std::uint64_t hash) noexcept
    {
        Record** link = &bucket(index_of(hash));
        while (*link != &record) link = &Links::next(**link);
        return *link;
    }

    // Adds a bucket and moves to it what belongs there out of the one bucket that held it so far.
    void split_one() noexcept
    {
        if (buckets_ % kSegmentBuckets == 0 && !add_segment()) return;
        Record** stay = &bucket(buckets_ - half_);
        Record** move = &bucket(buckets_);
        for (Record* record = *stay; record != nullptr; record = Links::next(*record)) {
            Record**& tail = (Links::hash(*record) & half_) != 0 ? move : stay;
            *tail = record;
            tail = &Links::next(*record);
        }
        *stay = nullptr;
        *move = nullptr;
        if (++buckets_ == 2 * half_) half_ *= 2;
    }

    [[nodiscard]] bool add_segment() noexcept
    {
        const std::size_t have = buckets_ / kSegmentBuckets - 1;
        if (have == segment_room_ && !grow_directory()) return false;
        segments_[have] =
            static_cast<Segment*>(OSL_Calloc(sizeof(Segment), allocation_tag("hash")));
        return segments_[have] != nullptr;
    }

    // The directory is tiny beside the segments: a million records need 2000 of its entries at the
    // most.
    [[nodiscard]] bool grow_directory() noexcept
    {
        const std::size_t room = segment_room_ == 0 ? 64 : 2 * segment_room_;
        auto* const wider =
            static_cast<Segment**>(OSL_Malloc(room * sizeof(Segment*), allocation_tag("hash")));
        if (wider == nullptr) return false;
        OSL_MemCopy(wider, segments_, segment_room_ * sizeof(Segment*));
        OSL_Free(segments_);
        segments_ = wider;
        segment_room_ = room;
        return true;
    }

    std::size_t count_ = 0;
    std::size_t buckets_ = kSegmentBuckets;
    std::size_t half_ = kSegmentBuckets;  // a power of 2: half_ <= buckets_ < 2 * half_
    mutable Segment first_{};             // so that the first records need no memory
    Segment** segments_ = nullptr;        // those behind the first
    std::size_t segment_room_ = 0;
};

}  // namespace corvane
#endif
