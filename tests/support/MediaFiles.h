// Real files made by others. They are no part of the source: tests that want them skip, visibly, where they
// aren't.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

/// $TESSADRIN_MEDIA, or the folder shared/media beside the source folder; empty when neither has a
/// MANIFEST.tsv.
inline std::filesystem::path MediaFolder()
{
    const char* chosen = std::getenv("TESSADRIN_MEDIA");
    const std::filesystem::path folder =
        chosen ? chosen : std::filesystem::path(TESSADRIN_SOURCE_PARENT) / "shared" / "media";
    return exists(folder / "MANIFEST.tsv") ? folder : std::filesystem::path();
}

#define SKIP_WITHOUT_MEDIA_FILES() \
    if (MediaFolder().empty())     \
    GTEST_SKIP() << "no media files: set TESSADRIN_MEDIA to a folder with a MANIFEST.tsv"

/// A table with tabs between the columns and a first line that names them: each row's fields by name.
inline std::vector<std::map<std::string, std::string>> ReadTable(const std::filesystem::path& path)
{
    std::ifstream file(path);
    const auto fieldsOf = [](const std::string& line) {
        std::vector<std::string> fields;
        std::istringstream rest(line);
        for (std::string field; std::getline(rest, field, '\t');)
            fields.push_back(field);
        return fields;
    };
    std::string line;
    std::getline(file, line);
    const std::vector<std::string> names = fieldsOf(line);
    std::vector<std::map<std::string, std::string>> rows;
    while (std::getline(file, line)) {
        const std::vector<std::string> fields = fieldsOf(line);
        auto& row = rows.emplace_back();
        for (size_t i = 0; i < names.size(); ++i)
            row[names[i]] = i < fields.size() ? fields[i] : "";
    }
    return rows;
}

/// The first `size` bytes of a file, or all of it.
inline std::vector<uint8_t> ReadStart(const std::filesystem::path& path, size_t size)
{
    std::vector<uint8_t> bytes(std::min<uintmax_t>(size, file_size(path)));
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    EXPECT_EQ(static_cast<size_t>(file.gcount()), bytes.size()) << path;
    return bytes;
}
