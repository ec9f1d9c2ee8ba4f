#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Quorva::Proc::Details {

/// Who decodes, or who encodes.
struct CodecChoice {
    struct Custom {
        AVCodecID id;
        std::string implementation;
        const AVCodec* codec;  ///< null where this build of FFmpeg lacks the named one
    };

    std::vector<Custom> custom;  ///< ascending by identifier, then by the implementation's text
    std::vector<std::pair<AVCodecID, const AVCodec*>> defaults;  ///< ascending by identifier

    const AVCodec* Find(AVCodecID id, const std::string& implementation) const noexcept;
    std::vector<std::pair<AVCodecID, std::string>> Keys() const;
};

/// The choices, with FFmpeg's answers written beside the questions: its own searches walk all codecs each
/// time.
struct Selection {
    Selection();

    CodecChoice decoders;
    std::unordered_map<std::string, AVPixelFormat> hardwareFormats;  ///< by implementation, for decoders only
    CodecChoice encoders;
};

}  // namespace Quorva::Proc::Details
