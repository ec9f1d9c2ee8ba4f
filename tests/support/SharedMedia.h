// Real files that others made: never part of the repository, used where they are.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>

/// The folder that TESSADRIN_MEDIA names, else `shared/media` beside the checkout when there is one. Its files lie
/// in `files`.
/// @throws std::runtime_error  TESSADRIN_MEDIA names no folder: whoever set it meant something.
inline std::optional<std::filesystem::path> SharedMedia()
{
    if (const char* given = std::getenv("TESSADRIN_MEDIA"); given && *given) {
        if (!std::filesystem::is_directory(given))
            throw std::runtime_error(std::string("TESSADRIN_MEDIA names no folder: ") + given);
        return given;
    }
    const auto beside = std::filesystem::path(TESSADRIN_SOURCE_DIR).parent_path() / "shared" / "media";
    if (std::filesystem::is_directory(beside))
        return beside;
    return std::nullopt;
}
