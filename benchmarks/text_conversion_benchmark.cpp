// Conversion of one mebibyte of text, compared with ICU and with the standard library's codecvt.

#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <codecvt>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <random>
#include <string>
#include <vector>

#include "platform/text_conversion.h"

namespace {

using install::cpputil::TextConversion;
using Words = std::vector<std::string>;

Words const ascii = {"unpacked ", "/opt/app/share/doc/readme.txt ", "1024 ", "bytes, ",
                     "checked\n"};
Words const latin = {"Größe ",     "geprüft ", "für ",       "die ",         "Straße\n",
                     "été ",       "à ",       "la ",        "répertoire ",  "déjà ",
                     "installé\n", "efter ",   "værktøjer ", "på ",          "computeren\n",
                     "und ",       "Dateien ", "el ",        "instalación ", "está "};
Words const chinese = {"安装程序", "正在", "将",     "基础工具", "解压", "到",
                       "指定的",   "目录", "请稍候", "。",       "，",   "\n"};
Words const emoji = {"😀", "😃😄", "😁😆😅", "🤣", "\n"};

/// Returns a mebibyte of \p words in random order, which no branch predictor can learn.
std::string text_of(Words const& words) {
    constexpr std::size_t mebibyte = 1'048'576;
    std::mt19937 random(1);
    std::string text;
    while (text.size() < mebibyte) {
        text += words[random() % words.size()];
    }
    return text;
}

using Codecvt = std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>;

std::u16string codecvt_from_utf8(std::string_view text) {
    return Codecvt().from_bytes(text.data(), text.data() + text.size());
}

std::string codecvt_to_utf8(std::u16string_view text) {
    return Codecvt().to_bytes(text.data(), text.data() + text.size());
}

std::u16string icu_from_utf8(std::string_view text) {
    std::u16string result(text.size(), u'\0');
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(result.data(), static_cast<std::int32_t>(result.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &error);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

std::string icu_to_utf8(std::u16string_view text) {
    std::string result(3 * text.size(), '\0');
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(result.data(), static_cast<std::int32_t>(result.size()), &length, text.data(),
                static_cast<std::int32_t>(text.size()), &error);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

void from_utf8(benchmark::State& state, std::u16string (*convert)(std::string_view),
               Words const& words) {
    auto const text = text_of(words);
    if (convert(text) != TextConversion::fromUtf8(text)) {
        std::abort();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(convert(text));
    }
}

void to_utf8(benchmark::State& state, std::string (*convert)(std::u16string_view),
             Words const& words) {
    auto const utf8 = text_of(words);
    auto const text = TextConversion::fromUtf8(utf8);
    if (convert(text) != utf8) {
        std::abort();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(convert(text));
    }
}

/// Registers the conversions of one kind of text.
bool add(std::string const& kind, Words const& words) {
    auto const name = [&](char const* conversion) { return conversion + ('/' + kind); };
    auto const from = [&](char const* conversion, auto convert) {
        benchmark::RegisterBenchmark(name(conversion).c_str(), from_utf8, convert, words);
    };
    auto const to = [&](char const* conversion, auto convert) {
        benchmark::RegisterBenchmark(name(conversion).c_str(), to_utf8, convert, words);
    };
    from("from_utf8", TextConversion::fromUtf8);
    from("icu_from_utf8", icu_from_utf8);
    from("codecvt_from_utf8", codecvt_from_utf8);
    to("to_utf8", TextConversion::toUtf8);
    to("icu_to_utf8", icu_to_utf8);
    to("codecvt_to_utf8", codecvt_to_utf8);
    return true;
}

[[maybe_unused]] bool const added =
    add("ascii", ascii) && add("latin", latin) && add("chinese", chinese) && add("emoji", emoji);

}  // namespace
