// What the service needs of the lease list beyond lease.h.
#ifndef CORVANE_FSMDC_LEASE_LIST_HPP
#define CORVANE_FSMDC_LEASE_LIST_HPP

#include "fsmdc/lease.h"

namespace corvane {

// Makes the lock anew and the list empty, without unlocking any file. Before other threads use
// them.
void reset_leases() noexcept;

}  // namespace corvane
#endif
