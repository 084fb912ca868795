// A general RTSP server for comparison: GStreamer's, with one shared stream that holds the synthetic video of
// the benchmark, frame for frame of the same bytes, sizes and times, as H.264 in packets of the usual size.
//
//   velmora-rtsp-bench PORT MBIT START
//
// Frame 0 is due at START, nanoseconds of CLOCK_MONOTONIC. Serves rtsp://127.0.0.1:PORT/live until it is
// killed.
#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "bench/frame_pattern.h"

namespace {

// The source is live; its NAL units stand behind their lengths, so that nobody must search for start codes.
// The parameter sets are those of 1080p in main profile.
constexpr char kPipeline[] =
    "( appsrc name=source is-live=true format=time do-timestamp=true "
    "caps=\"video/x-h264,stream-format=avc,alignment=au,width=1920,height=1080,framerate=25/"
    "1,codec_data=(buffer)"
    "014d4028ffe1001a674d4028eca03c0113f2e022000003000200000300641e30632c01000568ebe3cb20\" "
    "! rtph264pay name=pay0 pt=96 )";

struct Feed {
    FramePattern pattern;
    FrameClock clock;
};

GstBuffer* MakeFrame(const FramePattern& pattern, uint64_t number)
{
    const uint32_t bytes = FrameBytes(pattern, number);
    GstBuffer* const frame = gst_buffer_new_allocate(nullptr, bytes, nullptr);
    gst_buffer_fill(frame, sizeof(FramePrefix), FrameTail(number, sizeof(FramePrefix)),
                    bytes - sizeof(FramePrefix));
    if (!IsKeyFrame(pattern, number))
        GST_BUFFER_FLAG_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT);
    const FramePrefix prefix = MakeH264Prefix(pattern, number, MonotonicNs());
    gst_buffer_fill(frame, 0, &prefix, sizeof prefix);
    return frame;
}

// Feeds the stream from when it takes frames, for as long as it does. The reference to `source` is this
// thread's.
void Push(GstAppSrc* source, const Feed& feed)
{
    uint64_t number = 0;
    while (feed.clock.DueNs(number) < MonotonicNs())
        ++number;
    bool isTaken = false, wasTaken = false;
    do {
        SleepUntilNs(feed.clock.DueNs(number));
        isTaken = gst_app_src_push_buffer(source, MakeFrame(feed.pattern, number++)) == GST_FLOW_OK;
        wasTaken = wasTaken || isTaken;
    } while (isTaken || !wasTaken);
    gst_object_unref(source);
}

// The first reader has made the shared stream.
void Configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer data)
{
    GstElement* const pipeline = gst_rtsp_media_get_element(media);
    GstElement* const source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
    gst_object_unref(pipeline);
    std::thread(Push, GST_APP_SRC(source), *static_cast<const Feed*>(data)).detach();
}

} // namespace

int main(int argc, char** argv)
{
    gst_init(nullptr, nullptr);
    if (argc != 4) {
        fputs("usage: velmora-rtsp-bench PORT MBIT START\n", stderr);
        return 2;
    }
    const FramePattern pattern{.bitsPerSecond =
                                   static_cast<uint32_t>(strtoul(argv[2], nullptr, 10)) * 1000000};
    Feed feed{pattern, {strtoll(argv[3], nullptr, 10), pattern.framesPerSecond}};

    GstRTSPServer* const server = gst_rtsp_server_new();
    gst_rtsp_server_set_address(server, "127.0.0.1");
    gst_rtsp_server_set_service(server, argv[1]);
    GstRTSPMediaFactory* const factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, kPipeline);
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
    g_signal_connect(factory, "media-configure", G_CALLBACK(Configure), &feed);
    GstRTSPMountPoints* const mounts = gst_rtsp_server_get_mount_points(server);
    gst_rtsp_mount_points_add_factory(mounts, "/live", factory);
    if (gst_rtsp_server_attach(server, nullptr) == 0) {
        fprintf(stderr, "velmora-rtsp-bench: cannot listen on port %s\n", argv[1]);
        return 1;
    }
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
