// What the kernel offers, found out without the library: the doctor works where that can't be loaded.
#include "tools/isolation/Sandbox.h"

#include <linux/seccomp.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Quorva::Tool {

namespace {

constexpr long CREATE_RULESET = 444;  // headers may be older than the kernel
constexpr unsigned GET_VERSION = 1;

}  // namespace

int Details::LandlockVersion()
{
    const long version = syscall(CREATE_RULESET, nullptr, 0, GET_VERSION);
    return version > 0 ? static_cast<int>(version) : 0;
}

SandboxAbilities GetSandboxAbilities()
{
    SandboxAbilities abilities;
    abilities.landlock = Details::LandlockVersion();
    const uint32_t action = SECCOMP_RET_ERRNO;
    abilities.seccomp = syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
    static constexpr struct {
        int version;
        const char* text;
    } steps[] = {
        {1, "reading other files (Landlock)"               },
        {3, "truncating files (Landlock ABI 3)"            },
        {4, "TCP connections (Landlock ABI 4)"             },
        {5, "control calls to devices (Landlock ABI 5)"    },
        {6, "signals and abstract sockets (Landlock ABI 6)"},
    };
    for (const auto& step : steps)
        if (abilities.landlock < step.version && (step.version < 3 || !abilities.seccomp))
            abilities.missing.emplace_back(step.text);
    if (!abilities.seccomp)
        abilities.missing.emplace_back("other system calls: processes, sockets, traces (seccomp)");
    return abilities;
}

}  // namespace Quorva::Tool
