// Up to 64 bytes under any name, given to each recogniser of formats: it leaves the result as it was or names
// a format, and reads nothing behind the bytes.
#include "Proc/Wrappers/Tessadrin/Details/Recognisers.h"
#include "fuzz/support/Input.h"

using namespace Quorva;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    namespace FromProbe = Proc::Details::FromProbe;
    static constexpr Proc::Details::ProbeRecogniser* recognisers[] = {
        FromProbe::ImageSequence, FromProbe::Matroska, FromProbe::IsoMedia, FromProbe::Swf,
        FromProbe::Gif,           FromProbe::JpegXL,   FromProbe::Png,      FromProbe::WebP};
    Input input(data, size);
    const std::string name = input.Text(12);
    const auto probe = Proc::MovieProbe::Create(name, input.Bytes(std::min<size_t>(input.Left(), 64)));
    for (Proc::Details::ProbeRecogniser* recognise : recognisers) {
        Proc::ProbeResult result{"before", 1, "implementation"};
        Tolerate([&] { recognise(*probe, result); });
        Require(!result.format.empty() && result.score >= 0 && result.score <= 100);
        Require(result.implementation == "implementation");
    }
    return 0;
}
