// Motion alarms, from the alarm block to the recorders that subscribed; and key frames on request.

#include <sys/msg.h>

#include "camera/alarm_block.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

// Receives the alarm with this number; its bytes are checked but for the time. True when it tells of a start.
bool IsStart(ProtocolClient& client, uint32_t number)
{
    Message alarm = client.Receive();
    const auto bodyBytes = static_cast<uint32_t>(alarm.body.size());
    const MessageHeader expected{0xFF, 1, {}, client.session, number, {}, 1504, bodyBytes};
    EXPECT_EQ(memcmp(&alarm.header, &expected, sizeof expected), 0) << "number " << alarm.header.ulSeqNum;
    const std::string start = R"({"AlarmInfo":{"Channel":0,"Event":"VideoMotion","StartTime":")";
    const bool isStart = alarm.body.find("Start\"}") != std::string::npos;
    EXPECT_EQ(alarm.body.erase(start.size(), strlen("Sun Mar  9 12:05:07 2025")),
              start + R"(\n","Status":")" + (isStart ? "Start" : "Stop") +
                  R"("},"Name":"AlarmInfo","SessionID":"0x00000000"})");
    return isStart;
}

using Alarms = RunningCamera;

TEST_F(Alarms, ReachEverySubscriberOnceASecondAndOnceAtTheEnd)
{
    const ShmAttachment block(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
    const auto set = [&](uint32_t status) { StoreLe(block.get() + 2 * sizeof(AlarmEntry), status); };
    ProtocolClient subscriber, another, leaving, other;
    for (ProtocolClient* client : {&subscriber, &another, &leaving, &other})
        client->Login();
    for (ProtocolClient* client : {&subscriber, &another, &leaving})
        client->Ask(kAlarmSubscribeReq, "no json");
    leaving.Ask(kAlarmUnsubscribeReq);
    const auto begin = Clock::now();
    set(1);
    uint32_t number = 0;
    for (; number < 3; number++)
        EXPECT_TRUE(IsStart(subscriber, number) && IsStart(another, number));
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(2));
    set(0);
    while (number < 20 && IsStart(subscriber, number)) // the block may be read once more before
        number++;
    set(1); // nothing lies between the one end and the next start
    EXPECT_TRUE(IsStart(subscriber, number + 1));
    EXPECT_FALSE(leaving.HasInput() || other.HasInput());
}

TEST_F(Alarms, KeyFrameRequestIsAnsweredAlsoWhenTheEncoderHostIsDead)
{
    ProtocolClient client;
    client.Send(kForceIFrameReq);
    EXPECT_TRUE(client.ReceiveReply(kForceIFrameReply).body.starts_with(R"({"Name":"","Ret":100,)"));
    const int queue = msgget(kControlQueueKey, 0);
    for (const uint32_t stream : {0U, 1U}) { // it will find the orders
        ControlMessage order{};
        EXPECT_EQ(msgrcv(queue, &order, ControlMessage::kTextBytes, kControlRequestType, IPC_NOWAIT), 32);
        const uint32_t expected[8] = {2, 0x2010, stream};
        EXPECT_TRUE(std::equal(order.word, order.word + 8, expected));
    }
    msgctl(queue, IPC_RMID, nullptr);
}

} // namespace
