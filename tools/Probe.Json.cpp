#include "tools/Probe.h"
#include "tools/isolation/RecordText.h"
#include "tools/support/Console.h"

#include <fmt/format.h>

#include <string_view>
#include <unordered_set>

namespace Quorva::Tool {

namespace {

/// A JSON string or, for an empty text, null.
Json TextOrNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json MetadataJson(const Texts& metadata)
{
    // By hand, as the document's own look-up compares with every key there is.
    Json::object_t members;
    std::unordered_set<std::string_view> known;
    for (const auto& [key, value] : metadata)
        if (known.insert(key).second)  // the first of several, as a look-up would find
            members.emplace_back(key, value);
    return members;
}

Json CountJson(const PacketCount& count)
{
    return {
        {"packets", count.packets},
        {"bytes",   count.bytes  }
    };
}

Json PointJson(const Chromaticity& point)
{
    return {
        {"x", point.x},
        {"y", point.y}
    };
}

Json ColorJson(const VideoReport& video)
{
    Json color = Json::object();
    const std::pair<const char*, const char*> rows[] = {
        {"primaries",       video.primaries     },
        {"transfer",        video.transfer      },
        {"matrix",          video.matrix        },
        {"range",           video.range         },
        {"chroma_location", video.chromaLocation}
    };
    for (const auto& [name, text] : rows)
        if (text)
            color[name] = text;
    return color;
}

Json CropJson(const Conf::FrameCropping& crop)
{
    return {
        {"top",    crop.top   },
        {"bottom", crop.bottom},
        {"left",   crop.left  },
        {"right",  crop.right }
    };
}

Json MasteringJson(const MasteringDisplay& mastering)
{
    Json json = Json::object();
    if (const auto& primaries = mastering.primaries) {
        json["red"] = PointJson(primaries->red);
        json["green"] = PointJson(primaries->green);
        json["blue"] = PointJson(primaries->blue);
        json["white"] = PointJson(primaries->white);
    }
    if (const auto& luminance = mastering.luminance) {
        json["min_luminance"] = luminance->min;
        json["max_luminance"] = luminance->max;
    }
    return json;
}

Json LightJson(const ContentLight& light)
{
    return {
        {"max_cll",  light.maxCll },
        {"max_fall", light.maxFall}
    };
}

Json DolbyVisionJson(const DolbyVision& vision)
{
    return {
        {"profile",           vision.profile         },
        {"level",             vision.level           },
        {"compatibility_id",  vision.compatibilityID },
        {"base_layer",        vision.baseLayer       },
        {"enhancement_layer", vision.enhancementLayer},
        {"rpu",               vision.metadata        }
    };
}

Json StereoJson(const Stereo3D& stereo)
{
    return {
        {"layout",   stereo.layout  },
        {"view",     stereo.view    },
        {"inverted", stereo.inverted}
    };
}

Json SphericalJson(const Spherical& spherical)
{
    return {
        {"projection", spherical.projection},
        {"yaw",        spherical.yaw       },
        {"pitch",      spherical.pitch     },
        {"roll",       spherical.roll      }
    };
}

Json IccJson(const IccProfile& icc)
{
    return {
        {"size",        icc.size                   },
        {"description", TextOrNull(icc.description)}
    };
}

Json GainJson(const ReplayGain& gain)
{
    return {
        {"track_gain", OrNull(gain.trackGain)},
        {"track_peak", OrNull(gain.trackPeak)},
        {"album_gain", OrNull(gain.albumGain)},
        {"album_peak", OrNull(gain.albumPeak)}
    };
}

template <class T>
void AddMember(Json& json, const char* name, const std::optional<T>& value, Json (*toJson)(const T&))
{
    if (value)
        json[name] = toJson(*value);
}

Json VideoJson(const VideoReport& video)
{
    Json json{
        {"width",              video.width                    },
        {"height",             video.height                   },
        {"pixel_format",       OrNull(video.pixelFormat)      },
        {"pixel_aspect",       RationalJson(video.pixelAspect)},
        {"frame_rate",         RationalJson(video.frameRate)  },
        {"average_frame_rate", RationalJson(video.averageRate)},
        {"field_order",        OrNull(video.fieldOrder)       }
    };
    if (const Json color = ColorJson(video); !color.empty())
        json["color"] = color;
    AddMember(json, "crop", video.crop, CropJson);
    if (video.rotation) {
        json["rotation"] = *video.rotation;
        json["mirrored"] = video.mirrored;
    }
    AddMember(json, "mastering_display", video.mastering, MasteringJson);
    AddMember(json, "content_light", video.light, LightJson);
    AddMember(json, "dolby_vision", video.dolbyVision, DolbyVisionJson);
    AddMember(json, "stereo_3d", video.stereo3D, StereoJson);
    AddMember(json, "spherical", video.spherical, SphericalJson);
    AddMember(json, "icc_profile", video.icc, IccJson);
    return json;
}

Json AudioJson(const AudioReport& audio)
{
    Json json{
        {"sample_rate",   audio.sampleRate                                  },
        {"channels",      audio.channels                                    },
        {"layout",        TextOrNull(audio.layout)                          },
        {"sample_format", audio.format ? Json(audio.format->name) : Json()  },
        {"planar",        audio.format ? Json(audio.format->planar) : Json()},
        {"bits",          audio.bits > 0 ? Json(audio.bits) : Json()        }
    };
    AddMember(json, "replay_gain", audio.replayGain, GainJson);
    return json;
}

Json StreamJson(const StreamReport& stream, bool counted)
{
    Json json{
        {"index",       stream.index                                },
        {"kind",        stream.kind                                 },
        {"codec",
         {{"id", TextOrNull(stream.codecID)},
          {"ffmpeg", stream.codecName},
          {"tag", TextOrNull(stream.tag)},
          {"profile", OrNull(stream.profile)},
          {"level", stream.level ? Json(stream.level->name) : Json()},
          {"level_number", stream.level ? Json(stream.level->number) : Json()},
          {"decoder", OrNull(stream.decoder)},
          {"decoder_long_name", TextOrNull(stream.decoderLongName)}}},
        {"time_base",   RationalJson(stream.timeBase)               },
        {"start",       OrNull(stream.start)                        },
        {"duration",    OrNull(stream.duration)                     },
        {"bit_rate",    OrNull(stream.bitRate)                      },
        {"frames",      OrNull(stream.frames)                       },
        {"disposition", stream.disposition                          },
        {"metadata",    MetadataJson(stream.metadata)               }
    };
    if (stream.video)
        json["video"] = VideoJson(*stream.video);
    if (stream.audio)
        json["audio"] = AudioJson(*stream.audio);
    if (counted)
        json["count"] = CountJson(stream.count);
    return json;
}

Json ProgramJson(const ProgramReport& program)
{
    const std::string* name = program.GetName();
    return {
        {"id",       program.id                    },
        {"number",   program.number                },
        {"name",     name ? Json(*name) : Json()   },
        {"pmt_pid",  OrNull(program.pmtPid)        },
        {"pcr_pid",  OrNull(program.pcrPid)        },
        {"streams",  program.streams               },
        {"metadata", MetadataJson(program.metadata)}
    };
}

void AddContents(const FileReport& report, Json& json)
{
    json["duration"] = OrNull(report.duration);
    json["start"] = OrNull(report.start);
    json["bit_rate"] = OrNull(report.bitRate);
    json["metadata"] = MetadataJson(report.metadata);
    if (report.count)
        json["count"] = CountJson(*report.count);
    Json& streams = json["streams"] = Json::array();
    for (const StreamReport& stream : report.streams)
        streams.push_back(StreamJson(stream, report.count.has_value()));
    Json& programs = json["programs"] = Json::array();
    for (const ProgramReport& program : report.programs)
        programs.push_back(ProgramJson(program));
    Json& chapters = json["chapters"] = Json::array();
    for (const ChapterReport& chapter : report.chapters)
        chapters.push_back({
            {"start",    OrNull(chapter.start)         },
            {"end",      OrNull(chapter.end)           },
            {"metadata", MetadataJson(chapter.metadata)}
        });
    json["warnings"] = report.warnings;
}

Json PacketJson(const PacketReport& packet)
{
    return {
        {"stream",   packet.stream          },
        {"pts",      OrNull(packet.pts)     },
        {"dts",      OrNull(packet.dts)     },
        {"duration", OrNull(packet.duration)},
        {"size",     packet.size            },
        {"position", OrNull(packet.position)},
        {"key",      packet.key             },
        {"corrupt",  packet.corrupt         },
        {"discard",  packet.discard         }
    };
}

Json FileJson(const FileReport& report, bool details)
{
    Json json = Json::object();
    if (report.detected) {
        json["size"] = report.size;
        json["format"] = {
            {"detected",       report.result.format        },
            {"score",          report.result.score         },
            {"implementation", report.result.implementation}
        };
    }
    if (report.opened) {
        json["format"]["container"] = report.container;
        json["format"]["demuxer"] = report.demuxer;
        json["format"]["single_image"] = report.singleImage;
        AddContents(report, json);
    }
    if (report.failure)
        json["error"] = FailureJson(*report.failure, details);
    return json;
}

/// One document for the whole run, or for each file, written as it comes: a line for each file and, in one
/// document, for each packet. What a worker sends is checked: it can't break the document.
class JsonOutput final : public ProbeOutput {
public:
    JsonOutput(bool lines, bool details) : lines(lines), details(details) {}

    void BeginPackets(const FileReport&) override { SendText(BEGIN_PACKETS, {}); }
    void Packet(const PacketReport& packet) override
    {
        batch.append(batch.empty() ? "" : Separator()).append(JsonText(PacketJson(packet)));
        if (batch.size() >= BATCH)
            SendBatch();
    }
    void File(const FileReport& report) override
    {
        SendBatch();
        SendText(MEMBERS, JsonText(FileJson(report, details)));
    }

    void Begin() override
    {
        if (!lines)
            fmt::print("{{\"schema\":\"tessadrin/probe/1\",\n\"tool\":{},\n\"files\":[",
                       JsonText(ToolJson()));
    }
    void Record(const std::string& path, std::string_view record) override
    {
        const auto text = received.Take(record);
        if (!text || isComplete)
            return;
        if (text->mark == BEGIN_PACKETS)
            BeginFile(path);
        else if (text->mark == PACKETS && inPackets && Json::accept("[" + text->text + "]"))
            fmt::print("{}{}", std::exchange(packetSeparator, Separator()), text->text);
        else if (text->mark == MEMBERS && text->text.starts_with('{') && Json::accept(text->text))
            EndObject(path, text->text);
    }
    void EndFile(const std::string& path, const Failure* failure) override
    {
        received.Clear();
        Failure unknown;
        unknown.message = "the worker process sent no result";
        if (!isComplete && !(failure && failure->kind == FailureKind::Stopped && !inPackets))
            EndObject(path, JsonText({
                                {"error", FailureJson(failure ? *failure : unknown, details)}
            }));
        isComplete = false;
    }
    void End() override
    {
        if (lines)
            return;
        MakeWayForOutput();
        fmt::print("\n]}}\n");
    }

private:
    static constexpr char BEGIN_PACKETS = 'B', PACKETS = 'P', MEMBERS = 'M';
    static constexpr size_t BATCH = 16384;  ///< bytes of packets that are sent together

    const char* Separator() const { return lines ? "," : ",\n"; }
    void SendBatch()
    {
        if (!batch.empty())
            SendText(PACKETS, batch);
        batch.clear();
    }

    void BeginFile(const std::string& path)
    {
        MakeWayForOutput();
        fmt::print("{}{{\"path\":{},\"packets\":[", lines ? "" : std::exchange(fileSeparator, ",\n"),
                   JsonText(path));
        packetSeparator = lines ? "" : "\n";
        inPackets = true;
    }
    /// @param members  an object, whose members end that of the file
    void EndObject(const std::string& path, const std::string& members)
    {
        MakeWayForOutput();
        std::string text;
        if (std::exchange(inPackets, false))
            text = "]";
        else
            text = fmt::format("{}{{\"path\":{}", lines ? "" : std::exchange(fileSeparator, ",\n"),
                               JsonText(path));
        text.append(members == "{}" ? "" : ",").append(members, 1).append(lines ? "\n" : "");
        std::fwrite(text.data(), 1, text.size(), stdout);  // a failure is noticed at the program's end
        if (lines)
            std::fflush(stdout);
        isComplete = true;
    }

    const bool lines;
    const bool details;
    std::string batch;  ///< packets to be sent

    ReceivedTexts received;
    bool inPackets = false;   ///< of the file that is shown
    bool isComplete = false;  ///< the file that is shown
    const char* packetSeparator = "";
    const char* fileSeparator = "\n";
};

}  // namespace

std::unique_ptr<ProbeOutput> MakeJsonOutput(bool lines, bool details)
{
    return std::make_unique<JsonOutput>(lines, details);
}

}  // namespace Quorva::Tool
