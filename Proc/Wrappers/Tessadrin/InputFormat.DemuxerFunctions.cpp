#include "Proc/Wrappers/Tessadrin/Details/DemuxerFunctions.h"

#include <link.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Quorva::Proc::Details {

namespace {

// The layout is private to libavformat. It is taken as known for this one version, in the headers and in the
// library, and proven before it is used.
constexpr unsigned knownMajor = 61, knownMinor = 7;
constexpr bool headersKnown =
    LIBAVFORMAT_VERSION_MAJOR == knownMajor && LIBAVFORMAT_VERSION_MINOR == knownMinor;
static_assert(!headersKnown || sizeof(void*) != 8 ||
              (sizeof(AVInputFormat) == 56 && offsetof(DemuxerHead, readProbe) == 72 &&
               offsetof(DemuxerHead, readHeader) == 80));

const DemuxerHead& HeadOf(const AVInputFormat* demuxer) noexcept
{
    return *reinterpret_cast<const DemuxerHead*>(demuxer);
}

/// A loaded library, found by an address inside it.
class Module {
public:
    explicit Module(const void* inside) noexcept : address(reinterpret_cast<uintptr_t>(inside))
    {
        // The result is the callback's last: 0 when no module holds the address, and `module` stays empty.
        dl_iterate_phdr(
            [](dl_phdr_info* info, size_t, void* self) {
                auto& module = *static_cast<Module*>(self);
                if (!Holds(*info, module.address, 0))
                    return 0;
                module.info = *info;
                return 1;
            },
            this);
    }

    bool HoldsData(const void* data) const noexcept
    {
        return Holds(info, reinterpret_cast<uintptr_t>(data), 0);
    }
    template <class Function>
    bool HoldsCode(Function function) const noexcept
    {
        return Holds(info, reinterpret_cast<uintptr_t>(function), PF_X);
    }

private:
    static bool Holds(const dl_phdr_info& info, uintptr_t address, unsigned flags) noexcept
    {
        for (const ElfW(Phdr)* part = info.dlpi_phdr; part != info.dlpi_phdr + info.dlpi_phnum; ++part)
            if (part->p_type == PT_LOAD && (part->p_flags & flags) == flags &&
                address - (info.dlpi_addr + part->p_vaddr) < part->p_memsz)
                return true;
        return false;
    }

    uintptr_t address;
    dl_phdr_info info{};
};

/// The start of a WAVE file: one demuxer knows it, and doesn't give it the full score.
constexpr uint8_t knownFile[44 + AVPROBE_PADDING_SIZE] = {
    'R', 'I', 'F',  'F',  36, 0, 0,    0,    'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16,  0,   0, 0, 1, 0,
    1,   0,   0x40, 0x1f, 0,  0, 0x80, 0x3e, 0,   0,   2,   0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0,
};

bool ScoresAsFFmpegDoes() noexcept
{
    AVProbeData data{};
    data.filename = "";
    data.buf = const_cast<uint8_t*>(knownFile);  // read only, though FFmpeg's type doesn't say so
    data.buf_size = sizeof knownFile - AVPROBE_PADDING_SIZE;
    int score = 0;
    const AVInputFormat* demuxer = av_probe_input_format3(&data, 1, &score);
    return demuxer && demuxer->name && std::strcmp(demuxer->name, "wav") == 0 && HeadOf(demuxer).readProbe &&
           HeadOf(demuxer).readProbe(&data) == score;
}

bool IsProven() noexcept
{
    static const bool proven = [] {
        const unsigned version = avformat_version();
        return headersKnown && AV_VERSION_MAJOR(version) == knownMajor &&
               AV_VERSION_MINOR(version) == knownMinor && ProveDemuxerHead(av_demuxer_iterate);
    }();
    return proven;
}

}  // namespace

bool ProveDemuxerHead(const AVInputFormat* (*iterate)(void** position)) noexcept
{
    void* position = nullptr;
    const AVInputFormat* demuxer = iterate(&position);
    // Input devices come from a library of their own, so code is looked for where its demuxer is.
    for (Module module(demuxer); demuxer; demuxer = iterate(&position)) {
        if (!module.HoldsData(demuxer))
            module = Module(demuxer);
        const DemuxerHead& head = HeadOf(demuxer);
        if ((head.readProbe && !module.HoldsCode(head.readProbe)) ||
            (head.readHeader && !module.HoldsCode(head.readHeader)))
            return false;
    }
    return ScoresAsFFmpegDoes();
}

ReadProbe av_input_format_get_read_probe_func(const AVInputFormat* demuxer) noexcept
{
    return IsProven() ? HeadOf(demuxer).readProbe : nullptr;
}

ReadHeader av_input_format_get_read_header_func(const AVInputFormat* demuxer) noexcept
{
    return IsProven() ? HeadOf(demuxer).readHeader : nullptr;
}

}  // namespace Quorva::Proc::Details
