// Files to be forgotten.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

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
    ~TemporaryFolder() { std::filesystem::remove_all(path); }

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
