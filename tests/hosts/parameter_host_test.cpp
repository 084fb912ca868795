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
    void TearDown() override
    {
        if (host_) {
            host_->Stop();
            host_->Release(false);
        }
        PurgeParameterObjects();
    }

    static void Send(uint32_t code, uint32_t source, uint32_t length, uint32_t offset)
    {
        SendWords(kQueueKey, 1, {code, source, 0, length, offset});
    }
    static void PutValue(const std::vector<uint8_t>& value)
    {
        uint8_t* const data = AttachSegment(kQueueKey);
        memcpy(data + kSlot7, value.data(), value.size());
        shmdt(data);
    }
    // The result of one whole exchange of process 7.
    static int32_t Exchange(uint32_t code, const std::vector<uint8_t>& value)
    {
        PutValue(value);
        Send(code, 7, static_cast<uint32_t>(value.size()), kSlot7);
        const std::vector<uint32_t> reply = ReceiveWords(kQueueKey, 7);
        EXPECT_EQ(reply.size(), 5U);
        return reply.size() == 5 ? static_cast<int32_t>(reply[3]) : INT32_MIN;
    }
    uint16_t HttpPort()
    {
        const uint8_t* const block = AttachSegment(kBlockKey);
        const auto port = static_cast<uint16_t>(block[1108] | block[1109] << 8);
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
            constexpr uint32_t kTimeMode = 4402;
            constexpr uint32_t kTimeModeAgain = 4431; // under the same code
            const FieldPlace* const place = FindFieldPlace(field == kTimeModeAgain ? kTimeMode : field);
            const size_t width = place == nullptr ? 3 : place->usWidth;
            std::vector<uint8_t> value(width, 1);
            if (place != nullptr && place->kind == FieldKind::kAccount) {
                const std::string name = field == kFieldCreateUser ? "eve" : "admin";
                std::copy_n(name.c_str(), name.size() + 1, value.begin());
            }
            const bool largerThanTheBlockHolds = place != nullptr && place->usBlock != kNoBlockPlace &&
                                                 place->ucBlockBytes < width &&
                                                 place->kind == FieldKind::kNumber;
            if (largerThanTheBlockHolds)
                value = {1, 0, 0, 0};
            const auto code = static_cast<uint32_t>(*ParameterCode(field));
            const int expected = code == 247 ? static_cast<int>(width) : 0;
            EXPECT_EQ(Exchange(code, value), field == kFieldChangeUser ? -1 : expected);
        }
    EXPECT_EQ(MessagesInQueue(kQueueKey), 0U);
    EXPECT_EQ(reboots_, 1);
}

TEST_F(ParameterHostTest, StaysUnharmedByHostileMessages)
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
        {"WidthWrong", kHttpPortCode, 7, 4, kSlot7, true},
    };
    const uint16_t before = HttpPort();
    for (const auto& message : kMessages) {
        SCOPED_TRACE(message.name);
        Send(message.code, message.source, message.length, message.offset);
        if (message.answered) {
            EXPECT_EQ(static_cast<int32_t>(ReceiveWords(kQueueKey, message.source)[3]), -1);
        }
    }
    SendWords(kQueueKey, 1, {});
    SendWords(kQueueKey, 1, {kHttpPortCode, 7, 0, 2});
    SendWords(kQueueKey, 1, std::vector<uint32_t>(40, 7));
    EXPECT_EQ(HttpPort(), before);
    EXPECT_EQ(Exchange(kHttpPortCode, {0x90, 0x1F}), 0) << "it goes on serving";
    EXPECT_EQ(HttpPort(), 8080);
    EXPECT_EQ(MessagesInQueue(kQueueKey), 0U) << "nothing got two answers, or one that nobody fetches";
}

TEST_F(ParameterHostTest, TakesOverWhatALastLifeLeft)
{
    StartHost();
    host_->Stop();
    host_.reset(); // it died: its objects stay
    SendWords(kQueueKey, 7, {1, 2, 3, 4, 5});
    SendWords(kQueueKey, 12, {1, 2, 3, 4, 5});
    PutValue({0x91, 0x1F});
    Send(kHttpPortCode, 7, 2, kSlot7); // its sender still waits
    StartHost();
    EXPECT_EQ(static_cast<int32_t>(ReceiveWords(kQueueKey, 7)[3]), 0);
    EXPECT_EQ(HttpPort(), 8081);
    EXPECT_EQ(MessagesInQueue(kQueueKey), 0U);
}

TEST_F(ParameterHostTest, MakesAQueueThatWasRemovedAgain)
{
    StartHost();
    RemoveQueue(kQueueKey);
    while (msgget(kQueueKey, 0) < 0)
        usleep(1000);
    EXPECT_EQ(Exchange(kHttpPortCode, {0x90, 0x1F}), 0);
}

TEST_F(ParameterHostTest, RefusesASegmentOfTheWrongSizeOnlyWhileItIsInUse)
{
    const int small = shmget(kBlockKey, 4096, IPC_CREAT | 0660);
    void* const user = shmat(small, nullptr, 0);
    EXPECT_THROW(StartHost(), std::runtime_error);
    shmdt(user);
    StartHost();
    EXPECT_EQ(IpcShareMemBytes(shmget(kBlockKey, 0, 0)), 0x24000U);
}

TEST_F(ParameterHostTest, RemovesOnlyWhatNobodyElseUses)
{
    for (const bool inUse : {true, false}) {
        for (const bool always : {false, true}) {
            StartHost();
            uint8_t* const user = inUse ? AttachSegment(kBlockKey) : nullptr;
            host_->Stop();
            host_->Release(always);
            host_.reset();
            EXPECT_EQ(SegmentExists(kBlockKey), inUse && !always);
            EXPECT_EQ(msgget(kQueueKey, 0) >= 0, inUse && !always);
            if (user != nullptr)
                shmdt(user);
        }
    }
}

} // namespace
