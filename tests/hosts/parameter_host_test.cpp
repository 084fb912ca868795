#include "hosts/parameter_host.h"

#include <atomic>

#include "camera/parameter_fields.h"
#include "tests/hosts/queue_client.h"
#include "tests/table.h"

namespace {

constexpr uint32_t kHttpPortCode = 2;

class ParameterHostTest : public testing::Test {
  protected:
    ParameterHostTest() { host_.Start(); }
    ~ParameterHostTest() override
    {
        host_.Stop();
        PurgeParameterObjects();
    }
    static int32_t Result(uint32_t source = 7)
    {
        const std::vector<uint32_t> reply = ReceiveWords(kParameterQueue, source);
        EXPECT_EQ(reply.size(), 5U);
        return static_cast<int32_t>(reply.at(3));
    }
    std::atomic<int> reboots_ = 0;
    ParameterHost host_{"", [this] { ++reboots_; }};
};

TEST_F(ParameterHostTest, AnswersEveryCodeOnce)
{
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
    EXPECT_EQ(MessagesInQueue(kParameterQueue), 0U);
    EXPECT_EQ(reboots_, 1);
}

TEST_F(ParameterHostTest, OutlivesHostileMessages)
{
    const int before = HttpPort();
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/parameter_messages.tsv", 6)) {
        SCOPED_TRACE(row[0]);
        const auto word = [&row](size_t at) { return static_cast<uint32_t>(stoul(row[at], nullptr, 0)); };
        SendWords(kParameterQueue, 1, {word(1), word(2), 0, word(3), word(4)});
        EXPECT_EQ(row[5] == "answered" ? Result(word(2)) : -1, -1);
    }
    for (const size_t words : {0U, 4U, 40U})
        SendWords(kParameterQueue, 1, std::vector<uint32_t>(words, 7));
    SendValue(kHttpPortCode, {0x90, 0x1F, 0, 0});
    EXPECT_EQ(Result(), -1) << "the width is wrong";
    EXPECT_EQ(HttpPort(), before);
    EXPECT_EQ(MessagesInQueue(kParameterQueue), 0U) << "nothing got two answers, or one that nobody fetches";
}

} // namespace
