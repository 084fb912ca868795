#include "protocol/request.h"

#include <cstring>

#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

const struct FieldCase {
    const char* json;
    const char* text;
    int number;
    int flag;
} kFieldCases[] = {
    {R"({"other":1,"kEY":"x","key":"y"})", "x", -1, 0},
    {R"({"Key":-7.9})", nullptr, -7, 0},
    {R"({"Key":1e300})", nullptr, 2147483647, 0},
    {R"({"Key":-4294967297})", nullptr, -2147483647 - 1, 0},
    {R"({"Key":true})", nullptr, -1, 1},
    {R"({"Key":{"Key":1}})", nullptr, -1, 0},
    {R"(["Key"])", nullptr, -1, 0},
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

TEST(WriteReply, PrintsMembersOfEveryKindInTheirOrderBehindTheHeader)
{
    const JsonMember inner[] = {Int("Z", 4294967295), Bool("Off", false)};
    const JsonMember members[] = {Text("Name", "a\"\\\n/\x01"), Int("N", -1),       Bool("On", true),
                                  Object("In", inner),          Object("None", {}), Text("Empty", nullptr)};
    const TestConnection connection(0xFF);
    uint8_t reply[kReplyBytes]{};
    int length = 0;
    WriteReply(connection.fd(), MakeRequest(1).data(), kUserGroupReply, members, reply, &length);
    const char expected[] = "\xFF\1\0\0\xFF\0\0\0\x78\x56\x34\x12\0\0\xBF\x05\x84\0\0\0"
                            R"({"Name":"a\"\\\n/\u0001","N":-1,"On":true,)"
                            R"("In":{"Z":4294967295,"Off":false},"None":{},"Empty":"",)"
                            R"("Ret":100,"SessionID":"0x000000ff"})";
    EXPECT_EQ(std::string(reply, reply + length), std::string(expected, sizeof expected - 1));
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
    const JsonMember members[] = {Text("T", "t"), Object("O", inner), Bool("B", true)};
    uint8_t reply[kReplyBytes];
    int length = 0;
    int allocations = 0;
    for (; length == 0 && allocations < 100; left = ++allocations)
        WriteReply(MessageHeader{}, members, reply, &length);
    cJSON_InitHooks(nullptr);
    EXPECT_GT(allocations, 10);
    EXPECT_EQ(std::string(reply + 20, reply + length),
              R"({"T":"t","O":{"I":1},"B":true,"Ret":100,"SessionID":"0x00000000"})");
}

} // namespace
