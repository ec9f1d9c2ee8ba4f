// Files to be forgotten.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

/// A folder of its own for each test, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tessadrin-XXXXXX").native();
        if (!mkdtemp(pattern.data()))
            std::abort();
        path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;  // nobody is left to be told
        std::filesystem::remove_all(path, ignored);
    }

    /// Writes a file, folders included, and returns its path.
    std::string Put(const std::string& name, const std::string& bytes) const
    {
        const std::filesystem::path file = path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        return file.native();
    }
    std::string At(const std::string& name) const { return (path / name).native(); }

    std::filesystem::path path;
};

/// The names of what is in a folder, in their order.
inline std::vector<std::string> FilesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}
