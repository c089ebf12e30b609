/* SPDX-License-Identifier: MIT
 *
 * What every public header wraps its declarations in: C linkage, and visibility in the shared library, which
 * is built with hidden symbols.
 */
#ifndef KELISP_DECLS_H
#define KELISP_DECLS_H

#ifdef __cplusplus
#define KEL_DECLS_BEGIN                                                                                      \
    extern "C" {                                                                                             \
    _Pragma("GCC visibility push(default)")
#define KEL_DECLS_END                                                                                        \
    _Pragma("GCC visibility pop")                                                                            \
    }
#else
#define KEL_DECLS_BEGIN _Pragma("GCC visibility push(default)")
#define KEL_DECLS_END _Pragma("GCC visibility pop")
#endif

#endif
