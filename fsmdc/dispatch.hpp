// What the service needs of the volume dispatchers beyond service.h.
#ifndef CORVANE_FSMDC_DISPATCH_HPP
#define CORVANE_FSMDC_DISPATCH_HPP

namespace corvane {

// Makes the lock anew and the list empty. Before other threads use them.
void reset_dispatchers() noexcept;

}  // namespace corvane
#endif
