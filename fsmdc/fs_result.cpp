// The result codes and their texts.
#include "fsmdc/fs_result.h"

#include <cstdint>
#include <iterator>

namespace corvane {
namespace {

struct ResultText {
    std::uint32_t code;
    const wchar_t* text;
};

// Searched in this order. The codes without a text are reserved: nothing here produces them.
constexpr ResultText kResultTexts[] = {
    {FS_E_SUCCESS, L"Successful normal completion"},
    {FS_E_PARTIAL, L"Success, but partial information"},
    {FS_E_WRONG_FS, L"Not owned by this FSMDC"},
    {FS_E_BAD_PATH, L"Illegal or bad path or share name"},
    {FS_E_BAD_COOKIE, L"Bad volume cookie"},
    {FS_E_OUT_OF_MEMORY, L"Could not allocate memory for full reply"},
    {FS_E_INVALID_MSG_LENGTH, L"invalid message length"},
    {FS_E_INVALID_ENDIAN, L"invalid message endian"},
    {FS_UNKNOWN_FUNCTION, L"unknown message function"},
    {FS_E_UNKNOWN_SHARE, L"unknown share"},
    {FS_E_UNKNOWN_FILE, L"unknown file"},
    {FS_E_UNKNOWN_STREAM, L"unknown stream"},
    {FS_E_NO_DIRECT, L"Valid file, but no direct access from client"},
    {FS_E_PRIVILEGE, L"privilege error"},
    {FS_E_BAD_FILE, L"Bad file or volume cookie"},
    {FS_E_SUBMAP, L"Success, but submap returned"},
    {FS_E_IVPARAM, L"Start value not aligned"},
    {FS_E_NOT_LOCKED, L"File wasn't locked to begin with"},
    {FS_E_SHORT_ALLOC, L"Success, but not fully alloctd"},
    {401, nullptr},
    {402, nullptr},
    {403, nullptr},
    {FS_E_TRANSMOUNTPT, L"Unable to translate mount point"},
    {FS_E_NO_LIBRARY, L"Unable to find library from cookie"},
    {FS_E_INVALID_PATHNAME, L"Invalid pathname"},
    {FS_E_INVALID_KEY, L"Invalid key"},
    {FS_E_MISC_ERROR, L"Misc error"},
    {FS_E_UNABLE_TO_SET_LEASE, L"Unable to set lease"},
};
static_assert(std::size(kResultTexts) == 28);
constexpr std::uint8_t kRows = std::size(kResultTexts);  // the row counter has 8 bits
static_assert(sizeof(wchar_t) == 4, "the texts are 32-bit strings");

}  // namespace
}  // namespace corvane

extern "C" const wchar_t* FSERR_GetErrorString(std::uint32_t code) noexcept
{
    for (std::uint8_t row = 0; row < corvane::kRows; ++row) {
        if (corvane::kResultTexts[row].code == code) return corvane::kResultTexts[row].text;
    }
    return nullptr;
}
