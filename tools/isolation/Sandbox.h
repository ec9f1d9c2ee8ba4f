/// @file
/// Gives up, for the rest of a process's life, what decoding a file does not need.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sock_filter;

namespace Quorva::Tool {

/// What a sandboxed process keeps.
struct SandboxOptions {
    /// Hardware devices: all of /dev (with writing and ioctl), /sys, /proc and /usr stay open, sockets that
    /// drivers use stay forbidden.
    bool devices = false;
    /// Folders in which files may be created, written, renamed and removed, as encoders' pass logs are.
    std::vector<std::string> writableFolders;
};

/// What this kernel offers.
struct SandboxAbilities {
    int landlock = 0;      ///< ABI version; 0: none
    bool seccomp = false;  ///< filters of system calls
    /// What is not kept out, one clause each: "network connections (Landlock ABI 4)"; empty: nothing.
    std::vector<std::string> missing;
};

/// Asks the kernel. Changes nothing.
SandboxAbilities GetSandboxAbilities();

/// A sandbox, prepared once and entered by many processes.
///
/// Inside, no file can be created, changed or removed, and none opened but for reading those that libraries
/// load lazily: shared libraries and character sets below /usr/lib, fonts and their configuration, time
/// zones, /dev/null, /dev/urandom, what the kernel says about the processors, /proc/self, and the program's
/// own files. Open descriptors keep working. No socket, program, process (threads are fine), trace, mount or
/// signal to others can be made. A forbidden call fails with EACCES, EPERM or ENOSYS; nothing is killed.
///
/// Where the kernel lacks Landlock or seccomp, the rest is applied. Builds with a sanitizer keep the
/// process dumpable, because LeakSanitizer reads it.
class Sandbox {
public:
    /// Opens the folders and compiles the filter.
    /// @throws Quorva::Exception  out of memory or descriptors
    explicit Sandbox(const SandboxOptions& options);
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;
    ~Sandbox();

    /// Both apply it to the calling process, which must have one thread; there is no way back. Between them
    /// the process can still close the sandbox's own descriptors and set limits.
    /// @throws Quorva::Exception  the kernel has the means but refuses them
    void RestrictFiles() const;
    void RestrictCalls() const;

private:
    /// One rule: what may be done below a file or folder.
    struct Place {
        int descriptor;  ///< O_PATH
        uint64_t access;
    };

    void AddPlace(const char* path, uint64_t access);
    void AddOwnFiles();
    void EnterLandlock() const;

    const int landlock;  ///< ABI version; 0: none
    const bool writing;  ///< some folder is writable
    std::vector<Place> places;
    std::vector<sock_filter> program;  ///< empty: no seccomp
};

namespace Details {

/// The kernel's Landlock ABI version; 0 where it has none or it is turned off.
int LandlockVersion();

/// Stands in the filter for the process's own number, which is not known before the fork.
inline constexpr uint32_t PROCESS_PLACEHOLDER = 0x7e5a0001;

/// The filter of system calls, with PROCESS_PLACEHOLDER in it; empty where the kernel has no seccomp.
std::vector<sock_filter> MakeCallFilter(bool devices, bool writing);

}  // namespace Details

}  // namespace Quorva::Tool
