// SPDX-License-Identifier: MIT
//
// What the campaigns share: cases without end in a random order, within a time. CAMPAIGN_SECONDS is the time
// of each test (the long form; 10 s or less without it), CAMPAIGN_SEED repeats an order.
#ifndef CAMSTAT_TESTS_CAMPAIGN_H
#define CAMSTAT_TESTS_CAMPAIGN_H

#include "programRun.h"

#include <chrono>
#include <cstdio>
#include <random>

class Campaign
{
  public:
    explicit Campaign(int seconds = 10)
    {
        const std::string seed = Env("CAMPAIGN_SEED");
        const unsigned value =
            seed.empty() ? std::random_device{}() : static_cast<unsigned>(std::stoul(seed));
        random_.seed(value);
        end_ = std::chrono::steady_clock::now() +
               std::chrono::seconds(IsLong() ? std::stoi(Env("CAMPAIGN_SECONDS")) : seconds);
        printf("CAMPAIGN_SEED=%u\n", value);
    }
    ~Campaign() { printf("%d cases\n", cases_); }

    static bool IsLong() { return !Env("CAMPAIGN_SECONDS").empty(); }
    bool HasTime() const { return std::chrono::steady_clock::now() < end_; }

    /// Counts a case, while there is time for one.
    bool Goes()
    {
        cases_ += HasTime() ? 1 : 0;
        return HasTime();
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
