// Kernel leases: as long as one is held, a local program that opens the file has to wait, and this
// plug-in learns of it.
#ifndef CORVANE_PLUGINS_MOUNTED_KERNEL_LEASE_HPP
#define CORVANE_PLUGINS_MOUNTED_KERNEL_LEASE_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace corvane::mounted {

enum class LeaseKind {
    kRead,   // others may read, but not open for writing; needs a read-only descriptor
    kWrite,  // nobody else may open the file; needs the only descriptor there is
};

struct LeaseWatch;

// One lease on one descriptor, which must stay open until release(). Not for two threads at once.
class KernelLease {
public:
    KernelLease() = default;
    ~KernelLease() { release(); }
    KernelLease(const KernelLease&) = delete;
    KernelLease& operator=(const KernelLease&) = delete;

    // Takes the lease. Returns 0 or an errno value: EAGAIN when somebody has the file open in a way
    // that the lease forbids. `report` logs a line about the file, from a thread of this plug-in.
    int take(int descriptor, LeaseKind kind, std::function<void(const std::string&)> report);

    // Whether the lease still protects the file: also while an opener waits.
    [[nodiscard]] bool is_held() const;

    // Whether a lease for writing could be had now in place of one for reading, which stays: nobody
    // else has the file open.
    [[nodiscard]] bool could_write() const;

    // Lets an opener that waits go on.
    void release();

private:
    std::shared_ptr<LeaseWatch> watch_;
};

// Blocks the signals of leases in the calling thread, hence in all that it starts from now on, and
// starts the thread that takes them. Only the first call does anything. False when it cannot be.
bool start_lease_thread();

// Local opens of lent files since the start.
std::uint64_t count_local_opens();

}  // namespace corvane::mounted

#endif
