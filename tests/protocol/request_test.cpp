#include "protocol/request.h"

#include <cstring>

#include "protocol/send_mutex.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

TEST(MessageHeader, LiesOnTheWireAsDefined)
{
    const uint8_t wire[] = {
        0xFF, 0x01, 0x00, 0x00, // head flag, version, reserved
        0x04, 0x03, 0x02, 0x01, // session id
        0x78, 0x56, 0x34, 0x12, // sequence number
        0x00, 0x00, 0x82, 0x05, // reserved, message id 1410
        0x0B, 0x00, 0x01, 0x00, // body length
    };
    const MessageHeader header = ReadHeader(wire, sizeof wire);
    EXPECT_EQ(header.ulSessionId, 0x01020304U);
    EXPECT_EQ(header.ulSeqNum, 0x12345678U);
    EXPECT_EQ(header.usMessageId, kMonitorReq);
    EXPECT_EQ(header.ulBodyLength, 0x1000BU);
    uint8_t written[kHeaderBytes];
    WriteHeader(written, header);
    EXPECT_EQ(memcmp(written, wire, sizeof wire), 0);

    const MessageHeader cut = ReadHeader(wire, 15); // the second byte of the id is missing
    EXPECT_EQ(cut.usMessageId, 0x82);
    EXPECT_EQ(cut.ulBodyLength, 0U);
    EXPECT_EQ(ReadHeader(wire, 0).ucHeadFlag, 0);
}

const struct BodyCase {
    const char* name;
    std::string bytes; // behind the header
    std::string text;
    const char* printed; // null: it does not parse
} kBodyCases[] = {
    {"Empty", "", "", nullptr},
    {"Object", R"({"a":1})", R"({"a":1})", R"({"a":1})"},
    {"EndsAtTheFirstZero", std::string("{\"a\":1}\0{\"b\":2}", 15), R"({"a":1})", R"({"a":1})"},
    {"TextAfterTheValue", "{\"a\":1}\n\njunk", "{\"a\":1}\n\njunk", R"({"a":1})"},
    {"BreaksOffBehindAComma", R"({"1":1,)", R"({"1":1,)", nullptr},
    {"BreaksOffInAString", R"({"1)", R"({"1)", nullptr},
    {"NoObject", "5", "5", "5"},
    {"NotJson", "hello", "hello", nullptr},
    {"DeeplyNested", std::string(10000, '['), std::string(10000, '['), nullptr},
};

TEST(ParseBody, TakesTheBodyUpToItsFirstZeroOrTheEnd)
{
    for (const BodyCase& c : kBodyCases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> request = MakeRequest(1000, c.bytes); // not a byte more is readable
        const int length = static_cast<int>(request.size());
        EXPECT_EQ(RequestBody(request.data(), length), c.text);
        const JsonPtr body = ParseBody(request.data(), length);
        const JsonText printed(body != nullptr ? cJSON_PrintUnformatted(body.get()) : nullptr);
        EXPECT_STREQ(printed.get(), c.printed);
    }
    EXPECT_EQ(ParseBody(MakeRequest(1000).data(), 5), nullptr); // not even a header
}

const struct FieldCase {
    const char* json;
    const char* text;
    int number;
    int flag;
} kFieldCases[] = {
    {R"({"Key":"text"})", "text", -1, 0},
    {R"({"other":1,"kEY":"x","key":"y"})", "x", -1, 0},
    {R"({"key":""})", "", -1, 0},
    {R"({"Key":12})", nullptr, 12, 0},
    {R"({"Key":-7.9})", nullptr, -7, 0},
    {R"({"Key":1e300})", nullptr, 2147483647, 0},
    {R"({"Key":-4294967297})", nullptr, -2147483647 - 1, 0},
    {R"({"Key":true})", nullptr, -1, 1},
    {R"({"Key":false})", nullptr, -1, 0},
    {R"({"Key":null})", nullptr, -1, 0},
    {R"({"Key":{"Key":1}})", nullptr, -1, 0},
    {R"({"Keys":1})", nullptr, -1, 0},
    {R"(["Key"])", nullptr, -1, 0},
    {"\"Key\"", nullptr, -1, 0},
    {"", nullptr, -1, 0}, // no object at all
};

TEST(JsonFields, AreReadByTypeAndWithoutRegardToCase)
{
    for (const FieldCase& c : kFieldCases) {
        SCOPED_TRACE(c.json);
        const JsonPtr object(cJSON_Parse(c.json));
        EXPECT_STREQ(GetJsonString(object.get(), "Key"), c.text);
        EXPECT_EQ(GetJsonNumber(object.get(), "Key"), c.number);
        EXPECT_EQ(GetJsonBool(object.get(), "Key"), c.flag);
    }
}

TEST(WriteReply, PrintsMembersOfEveryKindInTheirOrder)
{
    const JsonMember inner[] = {Int("Z", 4294967295), Bool("Off", false)};
    const JsonMember members[] = {Text("Name", "a\"\\\n/\x01"),   Int("N", -1),        Bool("On", true),
                                  Raw("List", R"([1, {"a":0}])"), Object("In", inner), Object("None", {}),
                                  Text("Empty", nullptr)};
    const TestConnection connection(0xFF);
    uint8_t reply[kReplyBytes]{};
    int length = 0;
    WriteReply(connection.fd(), MakeRequest(1).data(), kUserGroupReply, members, reply, &length);
    const std::string expected = R"({"Name":"a\"\\\n/\u0001","N":-1,"On":true,"List":[1, {"a":0}],)"
                                 R"("In":{"Z":4294967295,"Off":false},"None":{},"Empty":"",)"
                                 R"("Ret":100,"SessionID":"0x000000ff"})";
    ASSERT_EQ(length, 20 + static_cast<int>(expected.size()));
    EXPECT_EQ(std::string(reply + 20, reply + length), expected);
    const uint8_t header[] = {0xFF, 1, 0, 0, 0xFF, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 0, 0, 0xBF, 0x05};
    EXPECT_EQ(memcmp(reply, header, sizeof header), 0);
    EXPECT_EQ(ReadHeader(reply, kHeaderBytes).ulBodyLength, expected.size());
}

TEST(WriteReply, SendsABodyThatJustFitsAndNothingLonger)
{
    const size_t tailBytes = strlen(R"({"T":"","Ret":100,"SessionID":"0x00000000"})");
    for (const int surplus : {-1, 0, 1, 100}) {
        SCOPED_TRACE(surplus);
        const std::string text(10240 - 20 - tailBytes + static_cast<size_t>(surplus), 'x');
        const JsonMember members[] = {Text("T", text.c_str())};
        std::vector<uint8_t> reply(kReplyBytes);
        int length = -1;
        const CapturedOutput log;
        WriteReply(MessageHeader{}, members, reply.data(), &length);
        EXPECT_EQ(length, surplus <= 0 ? 10240 + surplus : 0);
        EXPECT_EQ(log.Has("[Trace]: WriteReply N: reply 0 exceeds"), surplus > 0);
    }
}

TEST(WriteReply, SendsNothingWhenMemoryRunsOut)
{
    static int left; // allocations that still succeed
    cJSON_Hooks scarce{.malloc_fn = [](size_t bytes) { return left-- > 0 ? malloc(bytes) : nullptr; },
                       .free_fn = free};
    cJSON_InitHooks(&scarce);
    const JsonMember inner[] = {Int("I", 1)};
    const JsonMember members[] = {Text("T", "t"), Object("O", inner), Raw("R", "[]"), Bool("B", true)};
    int length = 0;
    int allocations = 0;
    for (; length == 0 && allocations < 100; ++allocations) {
        left = allocations;
        uint8_t reply[kReplyBytes];
        WriteReply(MessageHeader{}, members, reply, &length);
    }
    cJSON_InitHooks(nullptr);
    EXPECT_GT(allocations, 10);
    EXPECT_EQ(length,
              20 + static_cast<int>(strlen(
                       R"({"T":"t","O":{"I":1},"R":[],"B":true,"Ret":100,"SessionID":"0x00000000"})")));
}

TEST(LogRequest, NamesTheHandler)
{
    const CapturedOutput log;
    LogRequest("ProcessLoginReq", 12);
    EXPECT_EQ(log.Text(), "[Trace]: Process ProtocolAccess.c ProcessLoginReq 12\n");
}

TEST(SendMutex, IsRecursiveAndSurvivesASecondNetworkStart)
{
    CreateSendMutex();
    const RecursiveLocked outer(&g_sendMutex);
    CreateSendMutex();
    EXPECT_EQ(pthread_mutex_trylock(&g_sendMutex.mutex), 0);
    pthread_mutex_unlock(&g_sendMutex.mutex);
}

} // namespace
