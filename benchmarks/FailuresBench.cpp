// One exception, thrown eighteen functions deep, with its call stack and with an empty one.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"

#include <benchmark/benchmark.h>
#include <boost/exception/get_error_info.hpp>

namespace Benchmarks {

using namespace Quorva;

namespace {

volatile bool wanted = true;  // or else the compiler would know that nothing returns

[[gnu::noinline]] void Descend(int depth, bool withStack)
{
    if (depth > 0)
        Descend(depth - 1, withStack);
    else if (wanted && withStack)
        Proc::Details::Throw<Proc::ProcException>("'{}' option is out of range", "threads");
    else if (wanted)
        boost::throw_exception(boost::enable_error_info(Proc::ProcException())
                                   << TagDescription(fmt::format("'{}' option is out of range", "threads"))
                                   << TagCallStack(std::string()),
                               BOOST_CURRENT_LOCATION);
    benchmark::ClobberMemory();  // no tail call
}

Work Throws(bool withStack)
{
    return [withStack](int64_t times) {
        for (int64_t i = 0; i < times; ++i)
            try {
                Descend(18, withStack);
            } catch (const Proc::ProcException& e) {
                benchmark::DoNotOptimize(boost::get_error_info<TagDescription>(e));
            }
    };
}

}  // namespace

void AddFailures()
{
    Add({.name = "one throw, 18 functions deep",
         .peer = "the same with an empty stack",
         .ours = Throws(true),
         .peers = Throws(false),
         .limit = 1.5});
}

}  // namespace Benchmarks
