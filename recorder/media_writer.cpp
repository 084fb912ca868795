#include "recorder/media_writer.h"

#include <strings.h>

#include "recorder/failure.h"

namespace {

constexpr int64_t kMicroseconds = 1'000'000;

// A container names its tracks at its start. This long it waits for the first audio frame; by then a
// camera with a microphone has sent a dozen.
constexpr microseconds kAudioWait{500'000};

constexpr struct {
    const char* ending;
    ContainerKind kind;
} kEndings[] = {
    {".mkv", ContainerKind::kMatroska},
    {".mp4", ContainerKind::kMp4},
};

std::optional<ContainerKind> KindOf(const std::string& path)
{
    for (const auto& row : kEndings) {
        const size_t length = std::string_view(row.ending).size();
        if (path.size() > length && strcasecmp(path.c_str() + path.size() - length, row.ending) == 0)
            return row.kind;
    }
    return std::nullopt;
}

std::string Numbered(const std::string& path, size_t number)
{
    return number == 1 ? path : std::string(path).insert(path.rfind('.'), "-" + std::to_string(number));
}

} // namespace

MediaWriter::MediaWriter(const std::string& path, const std::atomic<bool>& giveUp)
    : path_(path), giveUp_(giveUp), kind_(KindOf(path))
{
}

MediaWriter::~MediaWriter() = default;

OutputFile MediaWriter::OpenNext()
{
    OutputFile file(Numbered(path_, files_.size() + 1), giveUp_);
    files_.push_back(file.path());
    return file;
}

void MediaWriter::Write(StoredFrame frame)
{
    if (!kind_)
        return WriteRaw(frame);
    if (frame.kind == kKeyFrame) {
        hasKeyFrame_ = true;
        auto format = ReadVideoFormat(frame.header, frame.payload);
        if (format && format_ && *format != *format_)
            FinishContainer();
        if (!format_)
            format_ = std::move(format);
    }
    if (!format_) // nothing can be shown before the first key frame
        return;
    if (container_ == nullptr)
        Hold(std::move(frame));
    else
        WriteToContainer(frame);
}

void MediaWriter::WriteRaw(const StoredFrame& frame)
{
    if (!raw_ && frame.kind == kKeyFrame)
        raw_.emplace(OpenNext());
    if (!raw_ || frame.kind == kAudioFrame)
        return;
    if (const int error = raw_->Write(frame.payload))
        raw_->ThrowError(error);
}

void MediaWriter::Hold(StoredFrame frame)
{
    const bool isAudio = frame.kind == kAudioFrame;
    held_.push_back(std::move(frame));
    if (isAudio || held_.back().arrival - held_.front().arrival >= kAudioWait)
        StartContainer(isAudio);
}

void MediaWriter::StartContainer(bool withAudio)
{
    container_ = std::make_unique<Container>(OpenNext(), *kind_, *format_, withAudio);
    origin_ = held_.front().arrival;
    videoStamps_ = {};
    audioStamps_ = {};
    for (const StoredFrame& frame : held_)
        WriteToContainer(frame);
    held_.clear();
}

void MediaWriter::WriteToContainer(const StoredFrame& frame)
{
    const int64_t arrival = std::chrono::duration_cast<microseconds>(frame.arrival - origin_).count();
    if (frame.kind == kAudioFrame) {
        const auto samples = static_cast<int64_t>(frame.payload.size()); // one byte each
        container_->WriteAudio(frame.payload,
                               audioStamps_.Stamp(arrival, samples * kMicroseconds / kAudioSampleRate));
        return;
    }
    const int64_t duration = frame.header.ucFrameRate == 0 ? 0 : kMicroseconds / frame.header.ucFrameRate;
    container_->WriteVideo(frame.payload, videoStamps_.Stamp(arrival, duration), frame.kind == kKeyFrame);
}

void MediaWriter::FinishContainer()
{
    if (container_ == nullptr && !held_.empty())
        StartContainer(false);
    if (container_ != nullptr)
        container_->Finish();
    container_.reset();
    format_.reset();
}

void MediaWriter::Close()
{
    FinishContainer();
    if (raw_)
        if (const int error = raw_->Close())
            raw_->ThrowError(error);
    if (files_.empty() && hasKeyFrame_)
        throw Failure(kExitLocal,
                      "cannot write " + path_ + ": the camera's key frames tell no codec or size");
}
