#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace kora {

// Writes a file whole, creating its missing folders.
inline void writeFileText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// A file's whole content; empty when it cannot be read.
inline std::string fileText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace kora
