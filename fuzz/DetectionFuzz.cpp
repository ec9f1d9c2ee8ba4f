// Any bytes under any extension are detected, not detected, or refused with the one documented exception; a
// detected format is one that a demuxer of the catalogue stands behind. The first byte chooses the extension.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <cstdlib>

using namespace Quorva;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static constexpr const char* names[] = {"",      "f.mp4", "f.mov",  "f.mkv",  "f.webm", "f.png",
                                            "f.gif", "f.jxl", "f.webp", "f.swf",  "f.jpg",  "f.ts",
                                            "f.mp3", "f.pnm", "f.heic", "f.apng", "f.m4v",  "f.tga"};
    if (size == 0)
        return 0;
    const auto probe = Proc::MovieProbe::Create(names[data[0] % std::size(names)],
                                                std::vector<uint8_t>(data + 1, data + size));
    Proc::ProbeResult result;
    try {
        Proc::DetectFileInputFormat(*probe, result);
    } catch (const Proc::ProcException& e) {
        if (std::string_view(e.what()) != "Unknown file format")
            std::abort();
        return 0;
    }
    if (!result.implementation.empty() && result.format.empty())
        std::abort();
    return 0;
}
