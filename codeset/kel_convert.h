/* Conversion between a code set, UTF-8 and UCS-2 (16-bit units in host order). Bytes count code-set
 * and UTF-8 text, units count UCS-2. A null code set is the default one. What cannot be decoded or
 * has no mapping is replaced, never an error. Threads may share a code set in the one-shot forms
 * once the library is initialised; in the resumable forms each stream needs its own. */
#ifndef CORVANE_CODESET_KEL_CONVERT_H
#define CORVANE_CODESET_KEL_CONVERT_H

#include <stdint.h>

#include "codeset/export.h"
#include "codeset/kel_cs.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the resumable forms. */
enum {
    KEL_DONE = 0,       /* the whole input was converted, or a flush call finished */
    KEL_FULL = 1,       /* the next character does not fit; the source stands on it */
    KEL_INCOMPLETE = 2, /* the input ends inside a sequence; the source stands on its first byte */
};

/* Resumable conversion: takes from `*source`, of which `*source_left` is there, and writes to
 * `*destination`, of which `*destination_left` is free; advances both pointers and lowers both
 * counts by what was done. A null `*source` is a flush call: it returns the direction's shift state
 * to the initial one, writing a closing shift-in where one is due. Returns KEL_DONE, KEL_FULL or
 * KEL_INCOMPLETE. */
KEL_API int32_t kel_to_utf8_r(kel_cs_t* cs, const char** source, uint32_t* source_left,
                              char** destination, uint32_t* destination_left) KEL_NOEXCEPT;
KEL_API int32_t kel_from_utf8_r(kel_cs_t* cs, const char** source, uint32_t* source_left,
                                char** destination, uint32_t* destination_left) KEL_NOEXCEPT;
KEL_API int32_t kel_to_ucs2_r(kel_cs_t* cs, const char** source, uint32_t* source_left,
                              uint16_t** destination, uint32_t* destination_left) KEL_NOEXCEPT;
KEL_API int32_t kel_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, uint32_t* source_left,
                                char** destination, uint32_t* destination_left) KEL_NOEXCEPT;

/* One-shot conversion of `length` bytes or units at `source`, or, when `length` is negative, of a
 * terminated text together with its terminator, into `destination` with room for `size` bytes or
 * units. The code set is not changed. What does not fit, and a sequence cut off at the end, is left
 * out. Returns the bytes or units written, the terminator included; 0 when `size` is 0. */
KEL_API uint32_t kel_to_utf8(const kel_cs_t* cs, const char* source, int32_t length,
                             char* destination, uint32_t size) KEL_NOEXCEPT;
KEL_API uint32_t kel_from_utf8(const kel_cs_t* cs, const char* source, int32_t length,
                               char* destination, uint32_t size) KEL_NOEXCEPT;
KEL_API uint32_t kel_to_ucs2(const kel_cs_t* cs, const char* source, int32_t length,
                             uint16_t* destination, uint32_t size) KEL_NOEXCEPT;
KEL_API uint32_t kel_from_ucs2(const kel_cs_t* cs, const uint16_t* source, int32_t length,
                               char* destination, uint32_t size) KEL_NOEXCEPT;

/* Converts `length` bytes of UTF-8 into a new buffer of 2 * `length` + 1 bytes and stores the bytes
 * written in `*count`; no terminator is added. `length` must not be negative. Returns null when
 * memory is short (`*count` is then 0); the caller frees with kel_free. */
KEL_API char* kel_fromu_alloc(const kel_cs_t* cs, const char* source, int32_t length,
                              uint32_t* count) KEL_NOEXCEPT;

/* Converts `length` bytes of code-set text into a new UTF-8 buffer of 3 * `length` + 1 bytes;
 * otherwise as kel_fromu_alloc. */
KEL_API char* kel_tou_alloc(const kel_cs_t* cs, const char* source, int32_t length,
                            uint32_t* count) KEL_NOEXCEPT;

/* Frees a buffer of the two above; null is allowed. */
KEL_API void kel_free(void* buffer) KEL_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
