/// @file
/// What an earlier run has found out about, as it left it in a JSON Lines file.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Quorva::Tool {

/// The paths in a JSON Lines file, 16 bytes each. Whatever follows the last line feed was cut off when the
/// earlier run ended, and does not count.
class EarlierResults {
public:
    /// Reads the file. Where it is standard output as well, to be continued, what was cut off is removed.
    /// @param path  empty: there are no results
    /// @throws Core::IOException  it can't be opened, or a line is not an object with a "path"
    explicit EarlierResults(const std::string& path);

    /// Whether there is a line about it. False for paths that are not UTF-8, which JSON can't tell apart.
    bool Has(const std::string& path) const;

private:
    using Digest = std::array<uint8_t, 16>;

    static Digest DigestOf(const std::string& path);

    std::vector<Digest> digests;  ///< sorted
};

}  // namespace Quorva::Tool
