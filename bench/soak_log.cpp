#include "bench/soak_log.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr size_t kLastLines = 60;
constexpr size_t kMostComplaints = 100;
constexpr const char* kComplaints[] = {
    "ERROR: AddressSanitizer",
    "ERROR: LeakSanitizer",
    "runtime error:",
    "WARNING: ThreadSanitizer",
    "stack smashing",
    "buffer overflow",
    "SUMMARY: ",
    "double free",
    "malloc():",
};
constexpr char kSlowReader[] = "ret11count >= 200";
constexpr std::string_view kLevels[] = {"[Trace]: ", "[Error]: ", "[Warn]: ", "[Info]: ", "[Debug]: "};

// The word that a line begins with, where it can be a function's name.
std::string FirstWord(std::string_view text)
{
    size_t length = 0;
    while (length < text.size() && (isalnum(static_cast<unsigned char>(text[length])) || text[length] == '_'))
        ++length;
    return std::string(text.substr(0, length));
}

std::string KindOf(std::string_view line)
{
    for (const std::string_view level : kLevels) {
        if (!line.starts_with(level))
            continue;
        const std::string name(level.substr(0, level.size() - 2));
        const bool common = name == "[Trace]";
        return common ? name : name + " " + FirstWord(line.substr(level.size()));
    }
    return "other";
}

} // namespace

void SoakLog::Add(LogSource& source, std::string_view text)
{
    const std::lock_guard lock(mutex_);
    for (size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        source.begun += text.substr(0, end);
        AddLine(source.begun);
        source.begun.clear();
    }
    source.begun += text;
}

void SoakLog::AddLine(const std::string& line)
{
    ++kinds_[KindOf(line)];
    const bool complains = std::ranges::any_of(
        kComplaints, [&line](const char* text) { return line.find(text) != std::string::npos; });
    if (complains && complaints_.size() < kMostComplaints)
        complaints_.push_back(line);
    slowReaders_ += line.find(kSlowReader) != std::string::npos;
    last_.push_back(line);
    if (last_.size() > kLastLines)
        last_.pop_front();
}

std::map<std::string, uint64_t> SoakLog::Kinds() const
{
    const std::lock_guard lock(mutex_);
    return kinds_;
}

std::deque<std::string> SoakLog::Complaints() const
{
    const std::lock_guard lock(mutex_);
    return complaints_;
}

std::deque<std::string> SoakLog::LastLines() const
{
    const std::lock_guard lock(mutex_);
    return last_;
}

uint64_t SoakLog::SlowReaders() const
{
    const std::lock_guard lock(mutex_);
    return slowReaders_;
}
