/**
 * @file
 * Result codes and linkage macros shared by the headers of the library. Included by them; C99 and C++.
 */
#ifndef VQ_RESULT_H
#define VQ_RESULT_H

#include <stdint.h>

#ifdef __cplusplus
#define VQ_EXTERN_C_BEGIN extern "C" {
#define VQ_EXTERN_C_END }
#else
#define VQ_EXTERN_C_BEGIN
#define VQ_EXTERN_C_END
#endif

/*
 * No exported function lets a C++ exception out: an error that has no result code (see the notes of each
 * function) ends the process.
 */
#if defined(__cplusplus) && __cplusplus >= 201103L
#define VQ_NOEXCEPT noexcept
#elif defined(__cplusplus)
#define VQ_NOEXCEPT throw()
#else
#define VQ_NOEXCEPT
#endif

#if defined(__GNUC__)
#define VQ_API __attribute__((visibility("default")))
#else
#define VQ_API
#endif

VQ_EXTERN_C_BEGIN

/**
 * Result of every function, and of the providers behind them: one 32-bit code space. The codes 0 to 8 below
 * are common to all interfaces; each interface adds a block of its own. A code that no header names can still
 * arrive: it is a provider's own, passed through unchanged.
 */
typedef uint32_t VQResult;

/** Values of VQResult that all interfaces share. */
enum {
    VQResult_Ok = 0,
    VQResult_Pending = 1,
    VQResult_Timeout = 2,
    VQResult_Locked = 3,
    VQResult_UnspecifiedFailure = 4,
    VQResult_InvalidParam = 5,
    VQResult_AllocFailed = 6,
    VQResult_PrivilegeDenied = 7,
    VQResult_NotImplemented = 8
};

VQ_EXTERN_C_END

#endif /* VQ_RESULT_H */
