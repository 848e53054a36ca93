/* The converters behind the entry points, one family a kind of code set, and the built-in EBCDIC
 * tables. Each takes the code set, the source pointer's address and the source's end, the
 * destination pointer's address and the destination's end; it advances both pointers and returns
 * KEL_DONE, KEL_FULL or KEL_INCOMPLETE. A null source pointer is a flush call. The code set must
 * not be null; a lookup that would leave its table image finds nothing, whatever the image holds.
 */
#ifndef CORVANE_CODESET_KEL_FAMILY_H
#define CORVANE_CODESET_KEL_FAMILY_H

#include <stdint.h>

#include "codeset/export.h"
#include "codeset/kel_cs.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The built-in UTF-8 set: any value that the bits give is taken, surrogates and overlong forms too;
 * supplementary characters are surrogate pairs in UCS-2. `utf8_to_utf8_r` serves both directions.
 */
KEL_API int32_t utf8_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                               uint16_t** destination, uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t utf8_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                                 char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t utf8_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                               char** destination, char* destination_end) KEL_NOEXCEPT;

/* The built-in pass-through set: bytes are copied, widened to units, or the low bytes of units. */
KEL_API int32_t os_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                             uint16_t** destination, uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t os_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                               char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t os_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                             char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t os_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                               char** destination, char* destination_end) KEL_NOEXCEPT;

/* Single-byte sets. */
KEL_API int32_t ascii_sbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     uint16_t** destination,
                                     uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_sbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                       const uint16_t* source_end, char** destination,
                                       char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_sbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_sbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                       char** destination, char* destination_end) KEL_NOEXCEPT;

/* Double-byte sets. */
KEL_API int32_t ascii_dbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     uint16_t** destination,
                                     uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_dbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                       const uint16_t* source_end, char** destination,
                                       char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_dbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_dbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                       char** destination, char* destination_end) KEL_NOEXCEPT;

/* Multi-byte sets. */
KEL_API int32_t ascii_mbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     uint16_t** destination,
                                     uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_mbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                       const uint16_t* source_end, char** destination,
                                       char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_mbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                     char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_mbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                       char** destination, char* destination_end) KEL_NOEXCEPT;

/* GB18030, supplementary characters included. */
KEL_API int32_t ascii_gb18030_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                        uint16_t** destination,
                                        uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_gb18030_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                          const uint16_t* source_end, char** destination,
                                          char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_gb18030_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                        char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ascii_gb18030_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                          char** destination, char* destination_end) KEL_NOEXCEPT;

/* EBCDIC single-byte sets; what has no mapping is written as 0x6F. */
KEL_API int32_t ebcdic_sbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                      uint16_t** destination,
                                      uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_sbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                        const uint16_t* source_end, char** destination,
                                        char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_sbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                      char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_sbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                        char** destination, char* destination_end) KEL_NOEXCEPT;

/* EBCDIC double-byte sets with shift-out and shift-in, whose mode is the shift state. */
KEL_API int32_t ebcdic_dbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                      uint16_t** destination,
                                      uint16_t* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_dbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source,
                                        const uint16_t* source_end, char** destination,
                                        char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_dbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                      char** destination, char* destination_end) KEL_NOEXCEPT;
KEL_API int32_t ebcdic_dbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                        char** destination, char* destination_end) KEL_NOEXCEPT;

/* The bytes, and the characters, that are the same in every EBCDIC code page: not 0. */
KEL_API extern const uint8_t invar_eb_to_ucs[256];
KEL_API extern const uint8_t invar_ucs_to_eb[256];

/* Code page 1047, but that 0x15 and 0x25 both read as U+000A, which is written as 0x15, and that
 * U+0085 has no mapping (0x6F). */
KEL_API extern const uint16_t def_eb_to_ucs[256];
KEL_API extern const uint8_t def_ucs_to_eb[256];

#ifdef __cplusplus
}
#endif
#endif
