// SPDX-License-Identifier: MIT
//
// In place of serve.cpp where there is no libfuse3.
#include "sim/serve/serve.h"

namespace sim
{

bool ServeNodes(const std::string &, const std::function<void()> &, std::string *problem)
{
    *problem = "serve: this camSim was built without libfuse3";
    return false;
}

bool IsServed(Call, const char *)
{
    return true;
}

} // namespace sim
