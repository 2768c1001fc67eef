// Files of the tool tests: inputs written to the test's temporary directory
// and goldens read whole.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace hidsensor {

// Writes `contents` to <temp dir>/<name>; returns the path.
inline std::string WriteTemp(const std::string& name, const std::string& contents)
{
    const std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

inline std::string ReadText(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace hidsensor
