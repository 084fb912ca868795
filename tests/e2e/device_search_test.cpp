// Recorders that look for the camera, and set its address, from the other end of its network.

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include "tests/e2e/harness/answering_param_host.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

using namespace std::string_literals;

constexpr char kMac[] = "02:AA:00:00:00:10";

sockaddr_in SearchPortOf(const char* host)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kSearchPort);
    address.sin_addr.s_addr = inet_addr(host);
    return address;
}

// A recorder's search socket. It hears its own broadcasts too, and drops them.
class Searcher {
  public:
    Searcher()
    {
        std::thread([this] { // that goes to the other end, and stays there
            const UniqueFd there(open("/sandbox/recorder.ns", O_RDONLY | O_CLOEXEC));
            if (setns(there.get(), CLONE_NEWNET) == 0)
                fd_.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        })
            .join();
        const int on = 1;
        setsockopt(fd_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        const timeval patience{std::chrono::duration_cast<std::chrono::seconds>(Patience()).count(), 0};
        setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        const sockaddr_in all = SearchPortOf("0.0.0.0");
        if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&all), sizeof all) != 0)
            throw std::runtime_error("no search socket at the recorder's end");
    }
    void SendBytes(std::string_view bytes, const char* host = getenv("CAMERA"))
    {
        const sockaddr_in to = SearchPortOf(host);
        if (sendto(fd_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof to) < 0)
            throw std::runtime_error(std::string("cannot send: ") + strerror(errno));
    }
    void Send(uint16_t id, std::string_view body = {}, const char* host = getenv("CAMERA"))
    {
        const MessageHeader header{0xFF, 1, {}, 0, ++sequence_, {}, id, static_cast<uint32_t>(body.size())};
        SendBytes(std::string(reinterpret_cast<const char*>(&header), sizeof header).append(body), host);
    }
    // The next message from the camera, which answers the last request and is a whole datagram.
    Message ReceiveReply(uint16_t id)
    {
        char bytes[2000];
        sockaddr_in from{};
        ssize_t length = 0;
        do {
            socklen_t fromBytes = sizeof from;
            length =
                recvfrom(fd_.get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&from), &fromBytes);
        } while (length > 0 && from.sin_addr.s_addr == inet_addr(getenv("RECORDER")));
        if (length < static_cast<ssize_t>(kHeaderBytes))
            throw std::runtime_error("no reply came");
        Message reply{ReadHeader(reinterpret_cast<uint8_t*>(bytes), kHeaderBytes),
                      {bytes + kHeaderBytes, bytes + length}};
        EXPECT_EQ(reply.header.usMessageId, id);
        EXPECT_EQ(reply.header.ulSeqNum, sequence_);
        EXPECT_EQ(reply.header.ulBodyLength, reply.body.size());
        return reply;
    }
    // Silence to everything before is proved by this being the first to arrive.
    void ExpectAnswersAgain()
    {
        Send(kKeepaliveReq);
        EXPECT_EQ(ReceiveReply(kKeepaliveReply).body,
                  R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x00000000"})");
    }

  private:
    UniqueFd fd_;
    uint32_t sequence_ = 0x12345678;
};

class DeviceSearch : public Camera {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(std::system(("ip link set eth0 address " + std::string(kMac)).c_str()), 0);
        parameters->Set<uint16_t>(block::kHttpPort, 8080);
        parameters->Set<uint32_t>(block::kDeviceName, 0x316D6163);   // "cam1"
        parameters->Set<uint32_t>(block::kSerialNumber, 0x32344E53); // "SN42"
        StartServer({"-p", "9100"});
        server->WaitForLog("CreateBroadcastSocket success");
    }
    Searcher searcher;
};

TEST_F(DeviceSearch, IsAnsweredToEverybodyAndItsEchoToNobody)
{
    const char* const hosts[] = {"255.255.255.255", getenv("CAMERA")};
    for (const char* host : hosts) {
        searcher.Send(kDevSearchReq, "", host);
        const Message reply = searcher.ReceiveReply(kDevSearchReply);
        EXPECT_EQ(reply.header.ulSessionId, 0U);
        EXPECT_EQ(reply.body, // the port is the record's, whatever the server was started with
                  R"({"NetWork.NetCommon":{"GateWay":"0x010200C0","HostIP":"0x0A0200C0","HostName":"cam1",)"
                  R"("HttpPort":8080,"MAC":"02:AA:00:00:00:10","MaxBps":0,"MonMode":"TCP","SN":"SN42",)"
                  R"("SSLPort":9000,"Submask":"0x00FFFFFF","TCPMaxConn":10,"TCPPort":9000,)"
                  R"("TransferPlan":"Quality","UDPPort":34568,"UseHSDownLoad":false},)"
                  R"("Ret":100,"SessionID":"0x00000000"})");
    }
    server->WaitForLog("cmd = 1531", 2); // its own broadcasts
    searcher.ExpectAnswersAgain();
    EXPECT_EQ(server->CountLog("Not supported this command : 1531"), 0);
}

TEST_F(DeviceSearch, AnyRequestMayComeThisWayAndNoDatagramDoesHarm)
{
    ProtocolClient bystander(9100);
    const uint32_t session = bystander.Login();
    const struct {
        uint16_t id;
        const char* body;
        bool isAnswered;
    } rows[] = {
        {kLoginReq, R"({"UserName":"admin"})", true},
        {kSysinfoReq, R"({"Name":"SystemInfo"})", true},
        {kSetConfigReq, R"({"Name":"General.AutoMaintain"})", true},
        {kSetConfigReq, "no JSON", false},
        {kGetConfigReq, R"({"Name":"NetWork.NetNTP"})", true},
        {kGetConfigReq, R"({"Name":"Record.[0]"})", false}, // above 1024 bytes
        {kGetAbilityReq, R"({"Name":"NoSuchAbility"})", true},
        {kMonitorReq, R"({"OPMonitor":{"Action":"Start","Parameter":{"StreamType":"Main"}}})", true},
        {kMonitorClaim, R"({"OPMonitor":{"Parameter":{"StreamType":"Main"}}})", true},
        {kDevSearchReply, "{}", false},
        {kDevIpSettingReply, "{}", false},
        {kMediaData, "{}", false},
        {kAlarmInfo, "{}", false},
        {9999, "{}", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        searcher.Send(row.id, row.body);
        if (row.isAnswered)
            searcher.ReceiveReply(static_cast<uint16_t>(row.id + 1));
        else
            searcher.ExpectAnswersAgain();
    }
    for (const size_t bytes : {0, 1, 19, 20, 1023, 1024, 1025, 60000})
        searcher.SendBytes(std::string(bytes, '\xFF'));
    searcher.ExpectAnswersAgain();
    EXPECT_EQ(server->CountLog("reply 1043 of "), 1);
    // The login by datagram counted on and touched no connection.
    EXPECT_EQ(bystander.Ask(kKeepaliveReq).header.ulSessionId, session);
    EXPECT_EQ(bystander.Login(), session + 2);
}

TEST_F(DeviceSearch, AFloodOfDatagramsKeepsNoConnectionWaiting)
{
    for (int datagram = 0; datagram < 1000; datagram++)
        searcher.Send(kDevSearchReq);
    ProtocolClient(9100).Login(); // long before they are all answered
    EXPECT_LT(server->CountLog("ProcessDevSearchReq"), 1000);
}

TEST_F(DeviceSearch, SetsTheAddressOfTheCameraThatIsNamed)
{
    AnsweringParamHost host;
    const auto set = [&](const char* mac) {
        searcher.Send(kDevIpSettingReq,
                      std::string(R"({"MAC":")") + mac +
                          R"(","HttpPort":80,"TCPPort":9001,"GateWay":"0x010200C0",)"
                          R"("HostIP":"0x140200C0","HostName":"cam-01","Submask":"0xFFFF"})");
        EXPECT_EQ(searcher.ReceiveReply(kDevIpSettingReply).body,
                  R"({"Name":"","Ret":100,"SessionID":"0x00000000"})");
        return host.Take();
    };
    EXPECT_EQ(set("02:AA:00:00:00:11"), std::vector<SentParameter>{});
    EXPECT_EQ(set("02:aa:00:00:00:10"), (std::vector<SentParameter>{
                                            {2, "\x50\0"s},          // HTTP port
                                            {10, "\0"s},             // this protocol's enable
                                            {9, "\x29\x23"s},        // and its port
                                            {14, "\xC0\0\x02\x01"s}, // gateway
                                            {0, "\xC0\0\x02\x14"s},  // address
                                            {65, "cam-01"},
                                            {1, "\xFF\xFF\0\0"s}, // mask
                                        }));
}

} // namespace
