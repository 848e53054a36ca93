// corvaned: the metadata controller. Parses two options, detaches, starts the servers.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fsmdc/admin_server.hpp"
#include "mdcmain/daemon.h"
#include "mdcmain/datagram_server.h"
#include "mdcmain/descriptor_server.h"
#include "mdcmain/language.hpp"
#include "mdcmain/segment.h"
#include "mdcmain/startup.hpp"
#include "osl/counters.h"
#include "osl/shared_word.hpp"

namespace {

constexpr int32_t kDefaultBacklog = 512;

// Serves for the life of the process: datagrams on threads of their own, descriptors on this one.
void serve(int32_t backlog) noexcept
{
    fused_mapShared();
    corvane::open_creators_catalogue();  // before anything can want a text
    corvane::install_log_handlers();
    (void)corvaned_lockInit();  // cannot fail: the value is 1
    const auto port = static_cast<uint16_t>(corvane::load_shared(fs->mdcPort));
    (void)DgramServer(port);  // exits on failure
    // Only the daemon that has the port shows its counters; without the page they are private.
    (void)counters_publish(port);
    corvane::start_administration(port);
    fifoGetHandleServer(backlog);
}

}  // namespace

int main(int argc, char** argv)
{
    int32_t backlog = kDefaultBacklog;
    bool served = false;
    const bool has_options = argc >= 2 && argv[1] != nullptr;
    for (int option = -1; has_options && (option = getopt(argc, argv, "dl:")) != -1;) {
        switch (option) {
            case 'l':
                backlog = std::atoi(optarg);
                break;
            case 'd':
                // At once, in this process: a -l behind it comes too late. Start scripts rely on
                // that.
                serve(backlog);
                served = true;
                break;
            default:
                std::fprintf(stderr,
                             "Usage: %s [-l fd listner queue size (default 512)] [-d no fork] \n",
                             argv[0]);
                return EXIT_FAILURE;
        }
    }
    if (served) return EXIT_SUCCESS;
    // The caller's process ends well even if there is no child: nobody waits for a background
    // program.
    if (fork() != 0) return EXIT_SUCCESS;
    serve(backlog);
    return EXIT_SUCCESS;
}
