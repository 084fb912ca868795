#include "protocol/request.h"

#include <cstring>

#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

TEST(WriteReply, PrintsValuesOfEveryKindInTheirPlacesBehindTheHeader)
{
    const TestConnection connection(0xFF);
    uint8_t reply[kReplyBytes]{};
    int length = 0;
    WriteReply(StartReply(connection.fd(), MakeRequest(1).data(), kUserGroupReply),
               R"("Name":@,"N":[@,@],"On":@,"Off":@,"In":@,"Empty":@,"Low":@,"Up":@,)", reply, &length,
               Quoted("a\"\\\b\f\n\r\t/\x01\x1f\x7f\xc3\xa9"), Number(-1), Number(4294967295), Flag(true),
               Flag(false), Plain("{}"), Quoted(nullptr), Hex(0xAB), UpperHex(0xABCDEF01));
    const char expected[] = "\xFF\1\0\0\xFF\0\0\0\x78\x56\x34\x12\0\0\xBF\x05\xAF\0\0\0"
                            R"({"Name":"a\"\\\b\f\n\r\t/\u0001\u001f)"
                            "\x7f\xc3\xa9"
                            R"(","N":[-1,4294967295],"On":true,"Off":false,"In":{},"Empty":"",)"
                            R"("Low":"0x000000ab","Up":"0xABCDEF01",)"
                            R"("Ret":100,"SessionID":"0x000000ff"})";
    EXPECT_EQ(std::string(reply, reply + length), std::string(expected, sizeof expected - 1));
}

TEST(WriteReply, SendsABodyThatJustFitsAndNothingLonger)
{
    const size_t tailBytes = strlen(R"({"T":"","Ret":100,"SessionID":"0x00000000"})");
    for (const int surplus : {-1, 0, 1, 100}) {
        SCOPED_TRACE(surplus);
        const std::string text(10240 - 20 - tailBytes + static_cast<size_t>(surplus), 'x');
        std::vector<uint8_t> reply(kReplyBytes);
        int length = -1;
        const CapturedOutput log;
        WriteReply(MessageHeader{}, R"("T":@,)", reply.data(), &length, Quoted(text.c_str()));
        EXPECT_EQ(length, surplus <= 0 ? 10240 + surplus : 0);
        EXPECT_EQ(log.Has("[Trace]: FinishReply N: reply 0 exceeds"), surplus > 0);
    }
}

} // namespace
