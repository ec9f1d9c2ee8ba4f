// Text about a stream's pictures and sound, beyond their format and size.
#include "tools/Probe.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace Quorva::Tool {

namespace {

using std::string_view_literals::operator""sv;

/// Adds `word` to a list with `separator` between.
void Append(std::string& list, const std::string& word, std::string_view separator = ", ")
{
    list.append(list.empty() ? "" : separator).append(word);
}

std::string MasteringText(const MasteringDisplay& mastering)
{
    const auto point = [](const Chromaticity& color) {
        return fmt::format("{:.4g} {:.4g}", color.x, color.y);
    };
    std::string text;
    if (const auto& primaries = mastering.primaries)
        Append(text, fmt::format("red {}, green {}, blue {}, white {}", point(primaries->red),
                                 point(primaries->green), point(primaries->blue), point(primaries->white)));
    if (const auto& luminance = mastering.luminance)
        Append(text, fmt::format("{:.6g} to {:.6g} cd/m2", luminance->min, luminance->max));
    return "mastering display " + text;
}

std::string LightText(const ContentLight& light)
{
    return fmt::format("content light MaxCLL {}, MaxFALL {} cd/m2", light.maxCll, light.maxFall);
}

/// "Dolby Vision 8.1", as players have it.
std::string DolbyVisionName(const DolbyVision& vision)
{
    return vision.compatibilityID != 0
               ? fmt::format("Dolby Vision {}.{}", vision.profile, vision.compatibilityID)
               : fmt::format("Dolby Vision {}", vision.profile);
}

std::string DolbyVisionText(const DolbyVision& vision)
{
    std::string layers;
    const std::pair<bool, const char*> rows[] = {
        {vision.baseLayer,        "BL" },
        {vision.enhancementLayer, "EL" },
        {vision.metadata,         "RPU"}
    };
    for (const auto& [present, name] : rows)
        if (present)
            Append(layers, name, "+");
    return fmt::format("{}, level {}, {}", DolbyVisionName(vision), vision.level,
                       layers.empty() ? "no layers" : layers);
}

std::string StereoText(const Stereo3D& stereo)
{
    // The two pictures of spatial video aren't packed into one: the view says more than the layout.
    const std::string_view kind =
        stereo.layout == std::string_view("unspecified") ? stereo.view : stereo.layout;
    return fmt::format("stereo 3D {}{}", kind, stereo.inverted ? ", inverted" : "");
}

std::string SphericalText(const Spherical& spherical)
{
    return fmt::format("spherical {}, yaw {:g}, pitch {:g}, roll {:g} degrees", spherical.projection,
                       spherical.yaw, spherical.pitch, spherical.roll);
}

std::string IccText(const IccProfile& icc)
{
    return fmt::format("ICC profile {}{} bytes",
                       icc.description.empty() ? "" : Printable(icc.description) + ", ", icc.size);
}

std::string GainText(const ReplayGain& gain)
{
    std::string text;
    const struct {
        const char* name;
        const std::optional<double>&gain, &peak;
    } rows[] = {
        {"track", gain.trackGain, gain.trackPeak},
        {"album", gain.albumGain, gain.albumPeak}
    };
    for (const auto& row : rows) {
        if (row.gain)
            Append(text, fmt::format("{} {:+.2f} dB", row.name, *row.gain));
        if (row.peak)
            Append(text, fmt::format("{} peak {:.4g}", row.name, *row.peak));
    }
    return "replay gain " + text;
}

template <class T>
void AddLine(std::vector<std::string>& lines, const std::optional<T>& value, std::string (*toText)(const T&))
{
    if (value)
        lines.push_back(toText(*value));
}

void AddVideoHighlights(const VideoReport& video, std::string& text)
{
    if (video.fieldOrder && video.fieldOrder != "progressive"sv)
        Append(text, "interlaced");
    if (video.transfer && video.transfer == "smpte2084"sv)
        Append(text, video.mastering || video.light ? "HDR10" : "HDR (PQ)");
    if (video.transfer && video.transfer == "arib-std-b67"sv)
        Append(text, "HDR (HLG)");
    if (video.dolbyVision)
        Append(text, DolbyVisionName(*video.dolbyVision));
    if (video.stereo3D)
        Append(text, "stereo 3D");
    if (video.spherical)
        Append(text, "spherical");
    if (video.icc)
        Append(text, "ICC profile");
}

}  // namespace

std::vector<std::string> DetailLines(const StreamReport& stream)
{
    std::vector<std::string> lines;
    if (const auto& video = stream.video) {
        AddLine(lines, video->mastering, MasteringText);
        AddLine(lines, video->light, LightText);
        AddLine(lines, video->dolbyVision, DolbyVisionText);
        AddLine(lines, video->stereo3D, StereoText);
        AddLine(lines, video->spherical, SphericalText);
        AddLine(lines, video->icc, IccText);
    }
    if (const auto& audio = stream.audio)
        AddLine(lines, audio->replayGain, GainText);
    return lines;
}

std::string Highlights(const FileReport& report)
{
    std::string text = report.singleImage ? "single image" : "";
    const auto video =
        std::ranges::find_if(report.streams, [](const auto& s) { return s.video.has_value(); });
    if (video != report.streams.end())
        AddVideoHighlights(*video->video, text);
    if (report.programs.size() > 1)
        Append(text, fmt::format("{} programs", report.programs.size()));
    return text;
}

}  // namespace Quorva::Tool
