#include "Proc/Wrappers/Tessadrin/CodecList.h"

#include "Proc/Wrappers/Tessadrin/Details/CodecRows.h"
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <span>

namespace Quorva {

using Proc::Details::CodecMap;
using Proc::Details::CodecMaps;
using Proc::Details::CodecRow;
using Proc::Details::GetLoaded;
using Proc::Details::Throw;

namespace {

/// The first row of an identifier wins. Rows ascend, so each entry belongs at the end.
CodecMap FromRows(std::span<const CodecRow> rows)
{
    CodecMap map;
    for (const auto& [id, textId] : rows)
        map.emplace_hint(map.end(), id, *textId);
    return map;
}

const std::string& AVCodecIDToTextID(const CodecMaps& codecs, AVCodecID id)
{
    const auto found = codecs.byId.find(id);
    if (found == codecs.byId.end())
        Throw<Conf::FormatException>("Provided codec id ({}) is not found in list", static_cast<int>(id));
    return *found->second;
}

AVCodecID AVCodecIDFromTextID(const CodecMaps& codecs, const std::string& textId)
{
    const auto found = codecs.byText.find(textId);
    if (found == codecs.byText.end())
        Throw<Conf::FormatException>("Provided codec textID ({}) is not found in list", textId);
    return found->second;
}

}  // namespace

CodecMaps::CodecMaps()
    : video(FromRows(Proc::Details::videoRows)),
      audio(FromRows(Proc::Details::audioRows)),
      subtitle(FromRows(Proc::Details::subtitleRows))
{
    for (const CodecMap* part : {&video, &audio, &subtitle})
        whole.insert(part->begin(), part->end());
    for (const std::span<const CodecRow> rows :
         {std::span<const CodecRow>(Proc::Details::genericRows), {Proc::Details::additionalRows}})
        for (const auto& [id, textId] : rows)
            whole.emplace(id, *textId);
    byId.reserve(whole.size());
    byText.reserve(whole.size());
    for (const auto& [id, textId] : whole) {
        byId.emplace(id, &textId);
        byText.emplace(textId, id);
    }
}

const CodecMap& GetFFAudioCodecsMap() { return GetLoaded().codecs.audio; }
const CodecMap& GetFFVideoCodecsMap() { return GetLoaded().codecs.video; }
const CodecMap& GetFFSubtitleCodecsMap() { return GetLoaded().codecs.subtitle; }
const CodecMap& GetFFCodecsMap() { return GetLoaded().codecs.whole; }

const std::string& CodecIDToTextID(AVCodecID id) { return AVCodecIDToTextID(GetLoaded().codecs, id); }

AVCodecID CodecIDFromTextID(const std::string& textId)
{
    return AVCodecIDFromTextID(GetLoaded().codecs, textId);
}

}  // namespace Quorva
