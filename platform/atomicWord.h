// SPDX-License-Identifier: MIT
//
// A 32-bit word that one side writes and the other polls, without a lock. std::atomic would be this, but its
// header draws in half of a C++ library, which the smallest C library on the target does not have. Internal
// to the programs.
#ifndef KELISP_PLATFORM_ATOMIC_WORD_H
#define KELISP_PLATFORM_ATOMIC_WORD_H

#include <stdint.h>

namespace kel
{

/// Loaded and stored by one instruction on every target, and so fit for a signal handler. What was written
/// before a store is seen by whoever loads what it stored.
class AtomicWord
{
  public:
    constexpr explicit AtomicWord(int32_t value) : value_(value) {}

    int32_t Load() const { return __atomic_load_n(&value_, __ATOMIC_ACQUIRE); }
    void Store(int32_t value) { __atomic_store_n(&value_, value, __ATOMIC_RELEASE); }

  private:
    int32_t value_;
};

} // namespace kel

#endif
