#include "Proc/Wrappers/Tessadrin/OutputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Details/OutputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/OutputRows.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <algorithm>
#include <ranges>

namespace Quorva::Proc {

using Details::GetLoaded;
using Details::KnownOutputFormat;
using Details::Throw;

namespace Details {

std::vector<const AVOutputFormat*> AllMuxers()
{
    std::vector<const AVOutputFormat*> muxers;
    muxers.reserve(200);
    for (void* position = nullptr; const AVOutputFormat* muxer = av_muxer_iterate(&position);)
        muxers.push_back(muxer);
    return muxers;
}

OutputCatalogue::OutputCatalogue(std::span<const AVOutputFormat* const> muxers)
{
    known.reserve(std::size(outputRows));
    for (const auto& [muxer, mimeType, format] : outputRows)
        known.emplace(*muxer, KnownOutputFormat{mimeType, format ? std::string_view(*format) : ""});

    formats.reserve(std::size(outputRows) + std::size(outputAliasRows));
    for (const AVOutputFormat* muxer : muxers) {
        if (muxer->flags & AVFMT_EXPERIMENTAL || !muxer->name)
            continue;
        const auto [first, last] = known.equal_range(muxer->name);
        if (first == last)
            continue;
        if (std::next(first) == last) {
            formats.try_emplace(muxer->name, muxer);
            continue;
        }
        const auto row = std::find_if(first, last, [&](const auto& candidate) {
            return muxer->mime_type && candidate.second.mimeType == muxer->mime_type;
        });
        if (row != last)
            formats.try_emplace(std::string(row->second.format), muxer);
    }
    for (const auto& [format, writer] : outputAliasRows)
        formats.try_emplace(*format, RequiredValue(formats, *writer));
}

}  // namespace Details

const AVOutputFormat* GetOutputFormat(const std::string& format)
{
    const auto& formats = GetLoaded().outputs.formats;
    const auto found = formats.find(format);
    if (found == formats.end())
        Throw<ProcException>("Unknown file format: '{}'", format);
    return found->second;
}

const std::unordered_map<std::string, const AVOutputFormat*>& GetFFMPEGSupportedOutputFormats()
{
    return GetLoaded().outputs.formats;
}

std::vector<std::pair<std::string, std::string>> GetFFMPEGRealOutputFormats()
{
    const auto& known = GetLoaded().outputs.known;
    std::vector<std::pair<std::string, std::string>> rows;
    rows.reserve(known.size());
    for (const auto& [muxer, entry] : known)
        rows.emplace_back(muxer, entry.mimeType);
    return rows;
}

}  // namespace Quorva::Proc
