/// @file
/// Paths.
#pragma once

#include "host/Export.h"

#include <filesystem>
#include <string>

namespace Quorva {

/// A path from UTF-8 text, kept byte for byte: nothing is normalised or re-encoded.
class QUORVA_HOST_API ioPath {
public:
    /// @param text  UTF-8, NUL-terminated; null gives an empty path.
    ioPath(const char* text);
    explicit ioPath(const std::string& text);
    /// The same path.
    explicit ioPath(std::filesystem::path path);

    /// For the standard library.
    const std::filesystem::path& Get() const noexcept { return path; }
    /// The whole path as UTF-8.
    const std::string& GetText() const noexcept { return path.native(); }
    /// What follows the last dot of the file's name, without the dot and in ASCII lower case; empty when the
    /// name has no dot or begins with its only one.
    std::string GetExtension() const;

private:
    std::filesystem::path path;
};

}  // namespace Quorva
