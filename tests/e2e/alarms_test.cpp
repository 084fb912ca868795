// Motion alarms, from the alarm block to the recorders that subscribed; and key frames on request.

#include "tests/e2e/harness/camera_test.h"

#include <sys/msg.h>

#include "camera/alarm_block.h"

namespace {

constexpr uint32_t kMotionSource = 2;

// The firmware's alarm source.
class AlarmSource {
  public:
    void Set(uint32_t status)
    {
        AlarmRecord record{};
        record.source[kMotionSource] = {status, static_cast<uint32_t>(time(nullptr))};
        StoreLe(block_.get(), record);
    }

  private:
    ShmAttachment block_{IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode)};
};

// Receives the alarm with this number and returns its status.
std::string ReceiveAlarm(ProtocolClient& client, uint32_t number)
{
    const Message alarm = client.Receive();
    const auto bodyBytes = static_cast<uint32_t>(alarm.body.size());
    const MessageHeader expected{0xFF, 1, {}, client.session, number, {}, 1504, bodyBytes};
    EXPECT_EQ(memcmp(&alarm.header, &expected, sizeof expected), 0) << "number " << alarm.header.ulSeqNum;
    const std::string start = R"({"AlarmInfo":{"Channel":0,"Event":"VideoMotion","StartTime":")";
    const std::string middle = R"(\n","Status":")",
                      end = R"("},"Name":"AlarmInfo","SessionID":"0x00000000"})";
    const size_t statusAt = start.size() + 24 + middle.size(); // 24 characters tell the time
    EXPECT_TRUE(alarm.body.starts_with(start) && alarm.body.ends_with(end)) << alarm.body;
    EXPECT_EQ(alarm.body.substr(start.size() + 24, middle.size()), middle);
    return alarm.body.substr(statusAt, alarm.body.size() - end.size() - statusAt);
}

using Alarms = RunningCamera;

TEST_F(Alarms, ReachEverySubscriberOnceASecondAndOnceAtTheEnd)
{
    AlarmSource motion;
    ProtocolClient subscriber, another, leaving, other;
    for (ProtocolClient* client : {&subscriber, &another, &leaving, &other})
        client->Login();
    for (ProtocolClient* client : {&subscriber, &another, &leaving})
        client->Ask(kAlarmSubscribeReq, "no json");
    leaving.Ask(kAlarmUnsubscribeReq);
    const auto begin = Clock::now();
    motion.Set(1);
    uint32_t number = 0;
    for (; number < 3; number++)
        for (ProtocolClient* client : {&subscriber, &another})
            EXPECT_EQ(ReceiveAlarm(*client, number), "Start");
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(2));
    motion.Set(0);
    std::string status = "Start"; // the block may be read once more before
    while (status == "Start" && number < 20)
        status = ReceiveAlarm(subscriber, number++);
    EXPECT_EQ(status, "Stop");
    motion.Set(1); // nothing lies between an end and the next start
    EXPECT_EQ(ReceiveAlarm(subscriber, number), "Start");
    EXPECT_FALSE(leaving.HasInput() || other.HasInput());
}

TEST_F(Alarms, KeyFrameRequestIsAnsweredWhenTheEncoderHostWasToldOrIsDead)
{
    const int queue = msgget(kControlQueueKey, 0); // made by the server
    ProtocolClient client;
    client.Send(kForceIFrameReq, "{}");
    for (const uint32_t stream : {0U, 1U}) {
        ControlMessage order{};
        ASSERT_EQ(msgrcv(queue, &order, ControlMessage::kTextBytes, kControlRequestType, 0), 32);
        const uint32_t expected[8] = {2, 0x2010, stream};
        EXPECT_TRUE(std::equal(order.word, order.word + 8, expected));
        order.type = kControlReplyType;
        EXPECT_EQ(msgsnd(queue, &order, ControlMessage::kTextBytes, 0), 0);
    }
    EXPECT_TRUE(client.ReceiveReply(kForceIFrameReply).body.starts_with(R"({"Name":"","Ret":100,)"));
    client.Send(kForceIFrameReq); // nobody takes the orders
    client.ReceiveReply(kForceIFrameReply);
    msgctl(queue, IPC_RMID, nullptr);
}

} // namespace
