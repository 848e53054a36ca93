/* A C program of another vendor: links with libcorvane.so and calls a function of each module. */
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "fsmdc/fs_result.h"
#include "lan/header.h"
#include "osl/fsuni.h"
#include "osl/token.h"

static int failures = 0;

static void expect(int holds, const char* what)
{
    if (holds) return;
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
}

int main(void)
{
    LanHeader header;
    memset(&header, 0, sizeof header);
    header.endian = 0x01000000u;
    header.functionCode = 0x01020304;
    LANSUP_TransLanHeader(&header);
    expect(header.functionCode == 0x04030201, "a foreign header is turned round");

    const wchar_t* text = FSERR_GetErrorString(FS_E_SHORT_ALLOC);
    expect(text != NULL && wcscmp(text, L"Success, but not fully alloctd") == 0, "text of 400");
    expect(FSERR_GetErrorString(402) == NULL, "402 has no text");

    expect(token_getNumTokens("a::b", ':') == 3, "three fields");
    return failures == 0 ? 0 : 1;
}
