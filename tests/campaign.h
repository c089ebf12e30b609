// SPDX-License-Identifier: MIT
//
// What the campaigns share: cases without end in a random order, within a time. CAMPAIGN_SECONDS is the time
// of each test (the long form; 10 s without it), CAMPAIGN_SEED repeats an order.
#ifndef CAMSTAT_TESTS_CAMPAIGN_H
#define CAMSTAT_TESTS_CAMPAIGN_H

#include "programRun.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

class Campaign
{
  public:
    Campaign()
    {
        const char *seed = getenv("CAMPAIGN_SEED");
        const char *seconds = getenv("CAMPAIGN_SECONDS");
        const unsigned value = seed != nullptr ? static_cast<unsigned>(atol(seed)) : std::random_device{}();
        random_.seed(value);
        end_ =
            std::chrono::steady_clock::now() + std::chrono::seconds(seconds != nullptr ? atol(seconds) : 10);
        printf("CAMPAIGN_SEED=%u\n", value);
    }
    ~Campaign() { printf("%d cases\n", cases_); }

    /// Counts a case, while there is time for one.
    bool Goes()
    {
        const bool goes = std::chrono::steady_clock::now() < end_;
        cases_ += goes ? 1 : 0;
        return goes;
    }

    /// 0 to `limit` - 1.
    unsigned Below(size_t limit) { return static_cast<unsigned>(random_() % limit); }
    std::mt19937 &Random() { return random_; }

  private:
    std::mt19937 random_;
    std::chrono::steady_clock::time_point end_;
    int cases_ = 0;
};

#endif
