#include "tests/test_data.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "host/hidparser/descriptor_text.h"

namespace testdata {

std::vector<std::uint8_t> LoadDescriptor(const std::string& name)
{
    const std::string path = std::string(TESTS_DATA_DIR) + "/" + name + ".hex";
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    std::vector<std::uint8_t> bytes;
    std::string error;
    if (!file.good() || !host::hid::ParseHexDescriptor(text.str(), bytes, error))
        ADD_FAILURE() << "cannot load " << path << ": " << error;
    return bytes;
}

}  // namespace testdata
