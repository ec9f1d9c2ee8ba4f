// Files' first bytes written by hand, and results that can be compared and read.
#pragma once

#include "host/ProcessingSupport.h"

#include <memory>
#include <ostream>
#include <string>

namespace Quorva::Proc {

inline bool operator==(const ProbeResult& a, const ProbeResult& b)
{
    return a.format == b.format && a.score == b.score && a.implementation == b.implementation;
}

inline std::ostream& operator<<(std::ostream& stream, const ProbeResult& result)
{
    return stream << '"' << result.format << "\" " << result.score << " by \"" << result.implementation
                  << '"';
}

inline std::unique_ptr<const MovieProbe> ProbeOf(const std::string& fileName, const std::string& bytes)
{
    return MovieProbe::Create(fileName, {bytes.begin(), bytes.end()});
}

namespace Samples {

using namespace std::string_literals;

inline const std::string iso =
    "\0\0\0\x18"s
    "ftypisom\0\0\2\0isomiso2"s;
inline const std::string webp = "RIFF\x1a\0\0\0WEBP"s;  // a chunk has to follow
inline const std::string ebml = "\x1A\x45\xDF\xA3"s;
inline const std::string png = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\2\0\0\0\x90wS\xde"s;
inline const std::string apng = png +
                                "\0\0\0\x08"s
                                "acTL\0\0\0\1\0\0\0\0....\0\0\0\1IDAT"s;
inline const std::string gif = "GIF89a\1\0\1\0\x80\0\0\0\0\0\xff\xff\xff,\0\0\0\0\1\0\1\0\0\2\2\x44\1\0;"s;
inline const std::string unknown = "no signature at all";

}  // namespace Samples
}  // namespace Quorva::Proc
