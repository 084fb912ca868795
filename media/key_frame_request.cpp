#include "media/key_frame_request.h"

#include "media/encoder_control.h"
#include "media/ring_layout.h"

int ProcessForceIFrameReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    (void)WriteReply(StartReply(fd, request, kForceIFrameReply), R"("Name":"",)", reply,
                     replyLen); // always 0
    for (const VideoIndex stream : {kMainStream, kSecondStream})
        (void)MediaHostVideoForceIFrame(static_cast<int32_t>(stream)); // what failed is in the log
    return 0;
}
