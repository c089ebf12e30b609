// SPDX-License-Identifier: MIT
//
// A 32-bit word that one side writes and the other polls, without a lock.
// std::atomic would be this, but its header draws in half of a C++ library, which
// the smallest C library on the target does not have. Internal to the programs.
#ifndef CAMSTAT_BASE_ATOMIC_WORD_H
#define CAMSTAT_BASE_ATOMIC_WORD_H

#include <stdint.h>

namespace kel
{

/// Touched by LoadWord and StoreWord alone: one instruction each on
/// every target, and so fit for a signal handler.
struct AtomicWord {
    int32_t value;
};

inline int32_t LoadWord(const AtomicWord &word)
{
    return __atomic_load_n(&word.value, __ATOMIC_ACQUIRE);
}

/// What was written before the store is seen by whoever loads what it stored.
inline void StoreWord(AtomicWord &word, int32_t value)
{
    __atomic_store_n(&word.value, value, __ATOMIC_RELEASE);
}

} // namespace kel

#endif
