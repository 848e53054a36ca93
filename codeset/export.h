/* Marks what the code-set library exports, and what never throws. */
#ifndef CORVANE_CODESET_EXPORT_H
#define CORVANE_CODESET_EXPORT_H

#define KEL_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define KEL_NOEXCEPT noexcept
#else
#define KEL_NOEXCEPT
#endif

#endif
