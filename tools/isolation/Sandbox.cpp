#include "tools/isolation/Sandbox.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace Quorva::Tool {

namespace {

// The kernel's interface, as of Landlock ABI 7: the headers of a distribution may be older than its kernel.
constexpr long CREATE_RULESET = 444, ADD_RULE = 445, RESTRICT_SELF = 446;
constexpr unsigned PATH_BENEATH = 1;

struct RulesetAttributes {
    uint64_t files;   ///< rights that are denied unless a rule grants them
    uint64_t ports;   ///< since ABI 4
    uint64_t scopes;  ///< since ABI 6
};

struct __attribute__((packed)) PathRule {
    uint64_t access;
    int32_t folder;
};

constexpr uint64_t WRITE_FILE = 1 << 1, READ_FILE = 1 << 2, READ_FOLDER = 1 << 3, REMOVE_FOLDER = 1 << 4,
                   REMOVE_FILE = 1 << 5, MAKE_FOLDER = 1 << 7, MAKE_FILE = 1 << 8, TRUNCATE = 1 << 14,
                   DEVICE_IOCTL = 1 << 15;
constexpr uint64_t READ = READ_FILE | READ_FOLDER;
constexpr uint64_t CHANGE =
    READ | WRITE_FILE | REMOVE_FOLDER | REMOVE_FILE | MAKE_FOLDER | MAKE_FILE | TRUNCATE;
constexpr uint64_t USE_DEVICE = READ | WRITE_FILE | DEVICE_IOCTL;
constexpr uint64_t OF_FILES = WRITE_FILE | READ_FILE | TRUNCATE | DEVICE_IOCTL | 1;  ///< the others: folders

/// File rights by ABI version, from 1.
constexpr uint64_t FILE_RIGHTS[] = {(1 << 13) - 1, (1 << 14) - 1, (1 << 15) - 1, (1 << 15) - 1,
                                    (1 << 16) - 1};
constexpr uint64_t TCP = 3;     ///< bind, connect
constexpr uint64_t SCOPES = 3;  ///< abstract sockets, signals

uint64_t FileRights(int version)
{
    return FILE_RIGHTS[std::min<size_t>(static_cast<size_t>(version), std::size(FILE_RIGHTS)) - 1];
}

/// What the process and its libraries read, whatever the file.
constexpr struct {
    const char* path;
    uint64_t access;
} USUAL[] = {
    {"/usr/lib",                            READ}, // shared libraries, character sets, plug-ins
    {"/lib",                                READ},
    {"/lib64",                              READ},
    {"/usr/local/lib",                      READ},
    {"/etc/ld.so.cache",                    READ},
    {"/usr/share/fonts",                    READ},
    {"/usr/local/share/fonts",              READ},
    {"/usr/share/fontconfig",               READ},
    {"/var/cache/fontconfig",               READ},
    {"/etc/fonts",                          READ},
    {"/usr/share/mime",                     READ},
    {"/usr/share/locale",                   READ},
    {"/usr/share/zoneinfo",                 READ},
    {"/etc/localtime",                      READ},
    {"/dev/null",                           READ},
    {"/dev/zero",                           READ},
    {"/dev/urandom",                        READ},
    {"/proc/cpuinfo",                       READ}, // encoders choose their code and threads by it
    {"/proc/meminfo",                       READ},
    {"/proc/filesystems",                   READ},
    {"/proc/sys/vm",                        READ},
    {"/sys/devices/system/cpu",             READ},
    {"/sys/devices/system/node",            READ},
    {"/sys/kernel/mm/transparent_hugepage", READ},
};

constexpr struct {
    const char* path;
    uint64_t access;
} FOR_DEVICES[] = {
    {"/dev",        USE_DEVICE},
    {"/sys",        READ      },
    {"/proc",       READ      },
    {"/usr",        READ      },
    {"/etc/OpenCL", READ      },
    {"/etc/vulkan", READ      },
};

[[noreturn]] void ThrowRefusal(const char* what)
{
    const int error = errno;
    Proc::Details::Throw<Proc::ProcException>("can't set up the sandbox ({}): {}", what,
                                              std::strerror(error));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

}  // namespace

Sandbox::Sandbox(const SandboxOptions& options)
    : landlock(Details::LandlockVersion()),
      writing(!options.writableFolders.empty()),
      program(Details::MakeCallFilter(options.devices, writing))
{
    if (landlock == 0)
        return;
    for (const auto& place : USUAL)
        AddPlace(place.path, place.access);
    if (options.devices)
        for (const auto& place : FOR_DEVICES)
            AddPlace(place.path, place.access);
    for (const std::string& folder : options.writableFolders)
        AddPlace(folder.c_str(), CHANGE);
    AddOwnFiles();
}

Sandbox::~Sandbox()
{
    for (const Place& place : places)
        close(place.descriptor);
}

/// A place that is not there needs no rule.
void Sandbox::AddPlace(const char* path, uint64_t access)
{
    const int descriptor = open(path, O_PATH | O_CLOEXEC);
    if (descriptor < 0 && (errno == ENOENT || errno == EACCES || errno == ENOTDIR))
        return;
    if (descriptor < 0)
        ThrowRefusal(path);
    struct stat status{};
    if (fstat(descriptor, &status) == 0 && !S_ISDIR(status.st_mode))
        access &= OF_FILES;
    places.push_back({descriptor, access & FileRights(landlock)});
}

/// The program and its libraries, wherever they are: call stacks and sanitizers read their tables.
void Sandbox::AddOwnFiles()
{
    const auto add = [](dl_phdr_info* object, size_t, void* sandbox) {
        const std::string_view path = *object->dlpi_name ? object->dlpi_name : "/proc/self/exe";
        // These folders have rules; hundreds more would cost every process milliseconds.
        if (!path.starts_with("/usr/lib/") && !path.starts_with("/lib/") && !path.starts_with("/lib64/"))
            static_cast<Sandbox*>(sandbox)->AddPlace(path.data(), READ);
        return 0;
    };
    dl_iterate_phdr(add, this);
}

void Sandbox::EnterLandlock() const
{
    const RulesetAttributes attributes{FileRights(landlock), TCP, SCOPES};
    const size_t size = landlock < 4 ? 8 : landlock < 6 ? 16 : sizeof attributes;
    const int ruleset = static_cast<int>(syscall(CREATE_RULESET, &attributes, size, 0));
    if (ruleset < 0)
        ThrowRefusal("Landlock rules");
    const auto allow = [ruleset](const Place& place) {
        const PathRule rule{place.access, place.descriptor};
        if (syscall(ADD_RULE, ruleset, PATH_BENEATH, &rule, 0) < 0)
            ThrowRefusal("a Landlock rule");
    };
    std::ranges::for_each(places, allow);
    // Not prepared: every process has a folder of its own.
    if (const int self = open("/proc/self", O_PATH | O_CLOEXEC); self >= 0) {
        allow({self, READ});
        close(self);
    }
    if (syscall(RESTRICT_SELF, ruleset, 0) < 0)
        ThrowRefusal("Landlock");
    close(ruleset);
}

void Sandbox::RestrictFiles() const
{
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) < 0)
        ThrowRefusal("no new privileges");
    if (!SANITIZED && prctl(PR_SET_DUMPABLE, 0) < 0)
        ThrowRefusal("no dumps");
    if (landlock > 0)
        EnterLandlock();
}

void Sandbox::RestrictCalls() const
{
    if (program.empty())
        return;
    std::vector<sock_filter> own = program;
    for (sock_filter& step : own)
        if (BPF_CLASS(step.code) == BPF_JMP && step.k == Details::PROCESS_PLACEHOLDER)
            step.k = static_cast<uint32_t>(getpid());
    const sock_fprog filter{static_cast<unsigned short>(own.size()), own.data()};
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) < 0)
        ThrowRefusal("seccomp");
}

}  // namespace Quorva::Tool
