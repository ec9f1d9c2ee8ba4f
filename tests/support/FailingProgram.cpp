// To be preloaded: the allocation whose number the environment's FAIL_AT tells fails.
#include "tests/support/FailingAllocator.h"

#include <cstdlib>

namespace {

struct Start {
    Start()
    {
        if (const char* const number = std::getenv("FAIL_AT"))
            FailingAllocator::Arm(std::atoi(number), FailingAllocator::Mode::Once);
    }
};
const Start start;

}  // namespace
