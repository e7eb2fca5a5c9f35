#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "platform/text_conversion.h"

/// A directory for the files of one benchmark. The destructor removes it and its content.
class Scratch {
public:
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "install_cpputil_bench_XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create the directory " + name);
        }
        path_ = name;
    }
    Scratch(Scratch const&) = delete;
    Scratch& operator=(Scratch const&) = delete;
    ~Scratch() { std::filesystem::remove_all(path_); }

    std::string operator/(std::string const& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::u16string utf16(std::string const& text) {
    return install::cpputil::TextConversion::fromUtf8(text);
}
