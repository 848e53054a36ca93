/* A program as others write it: the installed headers and libraries are all that it needs. */
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "client/client.h"
#include "fsmdc/fs_result.h"

/* Nobody answers on port 9: the failure's line shows that the client library ran. */
static int ask_nobody(void)
{
    CorvaneClientOptions options;
    memset(&options, 0, sizeof options);
    options.host = "127.0.0.1";
    options.port = 9;
    options.timeout_s = 1;
    options.tries = 1;
    CorvaneClient* client = corvane_client_create(&options);
    if (client == NULL) return 1;
    const int failed =
        corvane_client_ping(client, NULL) == 0 || corvane_client_error(client)[0] == '\0';
    corvane_client_free(client);
    return failed;
}

int main(void)
{
    if (wcscmp(FSERR_GetErrorString(FS_E_SHORT_ALLOC), L"Success, but not fully alloctd") != 0) {
        fputs("the library's table of results is not what its header says\n", stderr);
        return 1;
    }
    if (ask_nobody() != 0) {
        fputs("the client library does not say that nobody answers\n", stderr);
        return 1;
    }
    return 0;
}
