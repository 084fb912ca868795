// Writes one stream to a file: by its ending Matroska (.mkv, audio as received) or MP4 (.mp4, audio as
// AAC), else the bare video as it came, in Annex B form; "-" is standard output.
//
// A recording starts at its first key frame; nothing is created before. When the camera's codec, size or
// other parameter sets change, a container goes on in a new file: clip.mkv, clip-2.mkv, clip-3.mkv ... The
// bare form carries such a change in itself and goes on. Thread-bound; throws Failure.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recorder/container.h"
#include "recorder/output_file.h"
#include "recorder/stored_frame.h"
#include "recorder/time_stamps.h"
#include "recorder/video_format.h"

class MediaWriter {
  public:
    MediaWriter(const std::string& path, const std::atomic<bool>& giveUp);
    ~MediaWriter();
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    void Write(StoredFrame frame);
    // Ends the file so that it plays. Without this the file is left as far as it came.
    void Close();
    [[nodiscard]] const std::vector<std::string>& files() const { return files_; }

  private:
    void WriteRaw(const StoredFrame& frame);
    void WriteToContainer(const StoredFrame& frame);
    void Hold(StoredFrame frame);
    void StartContainer(bool withAudio);
    void FinishContainer();
    OutputFile OpenNext();

    std::string path_;
    const std::atomic<bool>& giveUp_;
    std::optional<ContainerKind> kind_; // empty: the bare form
    std::optional<OutputFile> raw_;
    std::optional<VideoFormat> format_; // of the current file
    std::vector<StoredFrame> held_;     // until it is known whether there is audio
    std::unique_ptr<Container> container_;
    bool hasKeyFrame_ = false; // one came, whether or not it could be read
    StampSmoother videoStamps_;
    StampSmoother audioStamps_;
    TimePoint origin_; // arrival of the file's first key frame
    std::vector<std::string> files_;
};
