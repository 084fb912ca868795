#include "hosts/parameter_host.h"

#include <atomic>
#include <cstring>

#include "camera/parameter_fields.h"
#include "tests/hosts/queue_client.h"

namespace {

constexpr key_t kBlockKey = 12930021;
constexpr key_t kQueueKey = 14073;
constexpr uint32_t kSlot7 = 61440; // of process 7
constexpr uint32_t kHttpPortCode = 2;

class ParameterHostTest : public testing::Test {
  protected:
    void StartHost()
    {
        host_.emplace("", [this] { ++reboots_; });
        host_->Start();
    }
    ~ParameterHostTest() override
    {
        host_.reset();
        PurgeParameterObjects();
    }
    static int32_t Result(uint32_t source = 7)
    {
        const std::vector<uint32_t> reply = ReceiveWords(kQueueKey, source);
        EXPECT_EQ(reply.size(), 5U);
        return static_cast<int32_t>(reply.at(3));
    }
    // Process 7 asks for a change.
    static void SendValue(uint32_t code, const std::vector<uint8_t>& value)
    {
        uint8_t* const data = AttachSegment(kQueueKey);
        memcpy(data + kSlot7, value.data(), value.size());
        shmdt(data);
        SendWords(kQueueKey, 1, {code, 7, 0, static_cast<uint32_t>(value.size()), kSlot7});
    }
    static int HttpPort()
    {
        const uint8_t* const block = AttachSegment(kBlockKey);
        const int port = block[1108] | block[1109] << 8;
        shmdt(block);
        return port;
    }

    std::atomic<int> reboots_ = 0;
    std::optional<ParameterHost> host_;
};

TEST_F(ParameterHostTest, AnswersEveryCodeOnce)
{
    StartHost();
    for (const ParameterFieldRange& range : kParameterFields)
        for (uint32_t field = range.ulFirst; field <= range.ulLast; ++field) {
            SCOPED_TRACE(field);
            // One code stands for both fields of the time mode.
            const FieldPlace* const place = FindFieldPlace(field == 4431 ? 4402 : field);
            const size_t width = place == nullptr ? 3 : place->usWidth;
            const auto code = static_cast<uint32_t>(*ParameterCode(field));
            SendValue(code, std::vector<uint8_t>(width));
            const bool refused = place != nullptr && place->kind == FieldKind::kAccount; // without a name
            EXPECT_EQ(Result(), refused ? -1 : code == 247 ? static_cast<int>(width) : 0);
        }
    EXPECT_EQ(MessagesInQueue(kQueueKey), 0U);
    EXPECT_EQ(reboots_, 1);
}

TEST_F(ParameterHostTest, OutlivesHostileMessagesALostQueueAndItsOwnEnd)
{
    StartHost();
    const struct {
        const char* name;
        uint32_t code, source, length, offset;
        bool answered;
    } kMessages[] = {
        {"SourceOfRequests", kHttpPortCode, 1, 2, kSlot7, false},
        {"SourceNegative", kHttpPortCode, UINT32_MAX, 2, kSlot7, false},
        {"SourceWithoutSlot", kHttpPortCode, 15, 2, 159744, true},
        {"CodeUnknown", 9999, 7, 2, kSlot7, true},
        {"LengthNegative", kHttpPortCode, 7, UINT32_MAX, kSlot7, true},
        {"LengthAboveASlot", kHttpPortCode, 7, 12289, 0, true},
        {"OffsetNegative", kHttpPortCode, 7, 2, UINT32_MAX, true},
        {"ValueAcrossTheEnd", kHttpPortCode, 7, 2, 0x24000 - 1, true},
        {"OffsetThatWraps", kHttpPortCode, 7, 2, 0x7FFFFFFF, true},
    };
    const int before = HttpPort();
    for (const auto& message : kMessages) {
        SCOPED_TRACE(message.name);
        SendWords(kQueueKey, 1, {message.code, message.source, 0, message.length, message.offset});
        EXPECT_EQ(message.answered ? Result(message.source) : -1, -1);
    }
    for (const size_t words : {0U, 4U, 40U})
        SendWords(kQueueKey, 1, std::vector<uint32_t>(words, 7));
    SendValue(kHttpPortCode, {0x90, 0x1F, 0, 0});
    EXPECT_EQ(Result(), -1) << "the width is wrong";
    EXPECT_EQ(HttpPort(), before);
    EXPECT_EQ(MessagesInQueue(kQueueKey), 0U) << "nothing got two answers, or one that nobody fetches";
    RemoveQueue(kQueueKey);
    while (msgget(kQueueKey, 0) < 0)
        usleep(1000);
    SendValue(kHttpPortCode, {0x90, 0x1F});
    EXPECT_EQ(Result(), 0) << "it goes on serving";
    EXPECT_EQ(HttpPort(), 8080);
    host_.reset(); // it died: its objects stay
    SendWords(kQueueKey, 7, {1, 2, 3, 4, 5});
    SendValue(kHttpPortCode, {0x91, 0x1F}); // its sender still waits
    StartHost();
    EXPECT_EQ(Result(), 0);
    EXPECT_EQ(HttpPort(), 8081);
}

} // namespace
