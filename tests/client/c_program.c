/* The public headers in C11: this program uses every function of theirs, without a controller. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "client/client.h"
#include "client/descriptor.h"

static int failures = 0;

static void expect(int holds, const char* what)
{
    if (holds) return;
    (void)fprintf(stderr, "does not hold: %s\n", what);
    ++failures;
}

static void check_descriptors(void)
{
    expect(setenv("CORVANEFIFO", "/nonexistent/socket", 1) == 0, "setenv");
    expect(corvane_open_descriptor("/etc/hosts") == -1 && errno == ENOENT, "no service");
    expect(corvane_open_descriptor("relative") == -1 && errno == EINVAL, "relative path");
    expect(corvane_open_log("/tmp/x.log") == -1 && errno == ENOENT, "no service for a log");
    expect(corvane_remove_log(NULL) == -1 && errno == EINVAL, "no path");
}

static void check_client(CorvaneClient* client)
{
    CorvaneVolume volume;
    int64_t size = 0;
    size_t count = 0;
    expect(strcmp(corvane_client_error(client), "") == 0, "no error at first");
    corvane_client_stop(client);
    expect(corvane_client_ping(client, NULL) == CORVANE_E_INTERRUPTED, "ping");
    expect(corvane_client_volume(client, "a", &volume, NULL, 0) == CORVANE_E_INTERRUPTED, "volume");
    expect(corvane_client_map(client, "a", "b", &size, NULL, 0, &count) == CORVANE_E_INTERRUPTED,
           "map");
    expect(corvane_client_read(client, "a", "b", 1) == CORVANE_E_INTERRUPTED, "read");
    expect(corvane_client_write(client, "a", "b", -1) == CORVANE_E_LOCAL_FILE, "write");
    expect(corvane_client_set_size(client, "a", "b", 0) == CORVANE_E_INTERRUPTED, "set size");
    expect(strlen(corvane_client_error(client)) != 0, "an error line");
}

int main(void)
{
    CorvaneClient* const client = corvane_client_create(NULL);
    check_descriptors();
    expect(client != NULL, "a client");
    if (client != NULL) check_client(client);
    corvane_client_free(client);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
