#include "common/resolution_parser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "common/bounded_text.h"
#include "common/log.h"

namespace {

constexpr size_t kListEntries = 64;
constexpr size_t kPrefixLength = 5; // "H264:" or "H265:"
constexpr size_t kSizeTextBytes = 1280;

// Size texts of one stream, in the order found; they point into the parsed text.
struct SizeList {
    std::string_view text[kListEntries];
    size_t count = 0;

    void Add(std::string_view size)
    {
        if (count < kListEntries)
            text[count++] = size.substr(0, kSizeTextBytes - 1);
    }
};

struct Sections {
    std::string_view second;
    std::string_view third;
    bool hasThird;
    bool singleStreamsDominate; // section 1 is longer than section 2 with its closing "@"
};

// One recognised size and the character that ends it, "," or ";".
struct Token {
    std::string_view size;
    size_t end; // position of the ending character within the section
    char ending;
};

bool Split(std::string_view text, Sections* out)
{
    const size_t first = text.find('@');
    if (first == std::string_view::npos)
        return false;
    const size_t second = text.find('@', first + 1);
    out->hasThird = second != std::string_view::npos;
    const size_t secondLength = out->hasThird ? second - first : text.size() - first - 1;
    out->singleStreamsDominate = first > secondLength;
    out->second = text.substr(first + 1, out->hasThird ? second - first - 1 : std::string_view::npos);
    out->third = out->hasThird ? text.substr(second + 1) : std::string_view();
    return true;
}

// First token at or after `from`; MJPEG sizes and unended texts are none.
bool NextToken(std::string_view section, size_t from, Token* out)
{
    for (size_t at = from; at + kPrefixLength <= section.size(); at++) {
        const std::string_view prefix = section.substr(at, kPrefixLength);
        if (prefix != "H264:" && prefix != "H265:")
            continue;
        const size_t start = at + kPrefixLength;
        const size_t end = section.find_first_of(",;", start);
        if (end == std::string_view::npos)
            return false;
        *out = {.size = section.substr(start, end - start), .end = end, .ending = section[end]};
        return true;
    }
    return false;
}

void ReadTwoStreamCombinations(std::string_view section, SizeList (&lists)[kResolutionStreams])
{
    Token token{};
    for (size_t at = 0; NextToken(section, at, &token); at = token.end + 1)
        lists[token.ending == ',' ? 0 : 1].Add(token.size);
}

void ReadThreeStreamCombinations(const Sections& sections, SizeList (&lists)[kResolutionStreams])
{
    if (sections.singleStreamsDominate)
        lists[0].count = 0;
    Token token{};
    for (size_t at = 0; NextToken(sections.third, at, &token); at = token.end + 1) {
        if (token.ending == ';') {
            lists[2].Add(token.size);
        } else if (sections.singleStreamsDominate) {
            const std::string_view second = lists[1].count > 0 ? lists[1].text[0] : std::string_view();
            if (second.substr(0, token.size.size()) != token.size)
                lists[0].Add(token.size);
        }
    }
    // The second stream of a combination stands between its first and second ",".
    for (size_t at = 0; NextToken(sections.third, at, &token);) {
        if (token.ending == ';') {
            at = token.end + 1;
            continue;
        }
        const size_t start = token.end + 1 + kPrefixLength;
        const size_t comma = sections.third.find(',', token.end + 1);
        if (comma != std::string_view::npos && comma >= start)
            lists[1].Add(sections.third.substr(start, comma - start));
        const size_t next = sections.third.find(';', token.end);
        if (next == std::string_view::npos)
            break;
        at = next + 1;
    }
}

ResolutionEntry ToEntry(std::string_view size)
{
    char text[kSizeTextBytes];
    size.copy(text, size.size());
    text[size.size()] = '\0';
    ResolutionEntry entry{};
    (void)ParseSizeText(text, &entry.iWidth, &entry.iHeight); // a text without "x" counts as 0x0
    return entry;
}

void FillRecord(const ResolutionEntry* sizes, size_t count, ResolutionRecord* record)
{
    *record = {.iCount = 1, .entry = {}};
    if (count == 0)
        return;
    record->entry[0] = sizes[0];
    for (size_t i = 1; i < count; i++) {
        const auto isSame = [&](const ResolutionEntry& have) {
            return have.iWidth == sizes[i].iWidth && have.iHeight == sizes[i].iHeight;
        };
        ResolutionEntry* const end = record->entry + record->iCount;
        if (record->iCount < kResolutionEntries && std::none_of(record->entry, end, isSame)) {
            *end = sizes[i];
            record->iCount++;
        }
    }
}

} // namespace

int LS_COMMON_ParseResolution(const char* text, ResolutionRecord (&out)[kResolutionStreams])
{
    Sections sections{};
    if (!Split(text, &sections))
        return -1;
    if (sections.hasThird)
        LogTrace("%s %d: ParseLen1 %d\n", __func__, __LINE__, static_cast<int>(sections.third.size()));

    SizeList lists[kResolutionStreams];
    ReadTwoStreamCombinations(sections.second, lists);
    if (sections.hasThird)
        ReadThreeStreamCombinations(sections, lists);

    ResolutionEntry sizes[kResolutionStreams][kListEntries];
    for (int list = 0; list < kResolutionStreams; list++) {
        for (size_t i = 0; i < lists[list].count; i++) {
            const std::string_view size = lists[list].text[i];
            LogTrace("ResolutionString[%d][%d] %.*s\n", list, static_cast<int>(i),
                     static_cast<int>(size.size()), size.data());
            sizes[list][i] = ToEntry(size);
        }
    }
    for (int stream = 0; stream < kResolutionStreams; stream++)
        FillRecord(sizes[stream], lists[stream].count, &out[stream]);
    for (int stream = 0; stream < kResolutionStreams; stream++) {
        if (lists[stream].count == 0)
            continue;
        for (int i = 0; i < out[stream].iCount; i++)
            fprintf(stderr, "ffff///////%s %d: %d: %d %d\n", __func__, __LINE__, stream,
                    out[stream].entry[i].iWidth, out[stream].entry[i].iHeight);
    }
    return 0;
}

int ParseSizeText(char* text, int32_t* width, int32_t* height)
{
    char* const x = strchr(text, 'x');
    if (x == nullptr)
        return -1;
    *x = '\0';
    *width = ToNumber(text);
    *height = ToNumber(x + 1);
    return 0;
}
