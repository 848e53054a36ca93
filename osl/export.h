/* Marks what libcorvane exports, and what never throws. Everything else stays hidden. */
#ifndef CORVANE_OSL_EXPORT_H
#define CORVANE_OSL_EXPORT_H

#define CORVANE_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define CORVANE_NOEXCEPT noexcept
#else
#define CORVANE_NOEXCEPT
#endif

#endif
