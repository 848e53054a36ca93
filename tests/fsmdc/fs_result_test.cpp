// The texts of the result codes.
#include "fsmdc/fs_result.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

const std::map<std::uint32_t, std::wstring> kTexts = {
    {0, L"Successful normal completion"},
    {1, L"Success, but partial information"},
    {2, L"Not owned by this FSMDC"},
    {3, L"Illegal or bad path or share name"},
    {4, L"Bad volume cookie"},
    {5, L"Could not allocate memory for full reply"},
    {6, L"invalid message length"},
    {7, L"invalid message endian"},
    {8, L"unknown message function"},
    {100, L"unknown share"},
    {101, L"unknown file"},
    {102, L"unknown stream"},
    {103, L"Valid file, but no direct access from client"},
    {104, L"privilege error"},
    {201, L"Bad file or volume cookie"},
    {202, L"Success, but submap returned"},
    {203, L"Start value not aligned"},
    {300, L"File wasn't locked to begin with"},
    {400, L"Success, but not fully alloctd"},
    {404, L"Unable to translate mount point"},
    {405, L"Unable to find library from cookie"},
    {406, L"Invalid pathname"},
    {407, L"Invalid key"},
    {408, L"Misc error"},
    {409, L"Unable to set lease"},
};

TEST(ResultText, EveryNamedCodeHasItsTextAndNoOtherHasOne)
{
    ASSERT_EQ(kTexts.size(), 25u);
    for (std::uint32_t code = 0; code < 2000; ++code) {
        const wchar_t* const text = FSERR_GetErrorString(code);
        const auto known = kTexts.find(code);
        if (known == kTexts.end()) {
            EXPECT_EQ(text, nullptr) << code;
        } else {
            ASSERT_NE(text, nullptr) << code;
            EXPECT_EQ(text, known->second) << code;
        }
    }
    EXPECT_EQ(FSERR_GetErrorString(0xFFFFFFFF), nullptr);
}

}  // namespace
