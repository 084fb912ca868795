// Recorders that look for the camera, and set its address, from the other end of its network.

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include "tests/e2e/harness/answering_param_host.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

sockaddr_in SearchPortOf(const char* host)
{
    return {
        .sin_family = AF_INET, .sin_port = htons(kSearchPort), .sin_addr = {inet_addr(host)}, .sin_zero = {}};
}

// A recorder's search socket. It hears its own broadcasts too, and drops them.
class Searcher {
  public:
    Searcher()
    {
        std::thread there([this] { // goes to the other end, and stays there
            const UniqueFd network(open("/sandbox/recorder.ns", O_RDONLY | O_CLOEXEC));
            if (setns(network.get(), CLONE_NEWNET) == 0)
                fd_.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        });
        there.join();
        const int on = 1;
        setsockopt(fd_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        const timeval patience{std::chrono::duration_cast<std::chrono::seconds>(Patience()).count(), 0};
        setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        const sockaddr_in all = SearchPortOf("0.0.0.0");
        EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr*>(&all), sizeof all), 0);
    }
    void Send(uint16_t id, std::string_view body = {}, const char* host = getenv("CAMERA"))
    {
        const MessageHeader header{0xFF, 1, {}, 0, ++sequence_, {}, id, static_cast<uint32_t>(body.size())};
        const std::string bytes =
            std::string(reinterpret_cast<const char*>(&header), sizeof header).append(body);
        const sockaddr_in to = SearchPortOf(host);
        sendto(fd_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    // The body of the next message, which answers the last request and is one whole datagram.
    std::string ReceiveReply(uint16_t id)
    {
        std::string bytes(2000, 0);
        sockaddr_in from{};
        socklen_t fromBytes = sizeof from;
        ssize_t length = 0;
        do
            length = recvfrom(fd_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from),
                              &fromBytes);
        while (length > 0 && from.sin_addr.s_addr != inet_addr(getenv("CAMERA")));
        if (length < static_cast<ssize_t>(kHeaderBytes))
            throw std::runtime_error("no reply came");
        const MessageHeader header = ReadHeader(reinterpret_cast<uint8_t*>(bytes.data()), kHeaderBytes);
        EXPECT_EQ(header.usMessageId, id);
        EXPECT_EQ(header.ulSeqNum, sequence_);
        EXPECT_EQ(header.ulBodyLength + kHeaderBytes, static_cast<size_t>(length));
        return bytes.substr(kHeaderBytes, header.ulBodyLength);
    }
    // That nothing before was answered is proved by this reply, which is the first to arrive.
    void ExpectSilence()
    {
        Send(kKeepaliveReq);
        EXPECT_EQ(ReceiveReply(kKeepaliveReply),
                  R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x00000000"})");
    }

  private:
    UniqueFd fd_;
    uint32_t sequence_ = 0x12345678;
};

constexpr char kMac[] = "02:AA:00:00:00:10";
constexpr uint16_t kOtherPort = 9100; // than the one in the camera's settings

class DeviceSearch : public Camera {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(std::system((std::string("ip link set eth0 address ") + kMac).c_str()), 0);
        StartServer({"-p", std::to_string(kOtherPort)});
        server->WaitForLog("CreateBroadcastSocket success");
    }
    Searcher searcher;
};

TEST_F(DeviceSearch, IsAnsweredToEverybodyAndItsEchoToNobody)
{
    const char* const hosts[] = {"255.255.255.255", getenv("CAMERA")};
    for (const char* host : hosts) {
        searcher.Send(kDevSearchReq, "no JSON", host);
        const std::string reply = searcher.ReceiveReply(kDevSearchReply);
        EXPECT_EQ(reply, ProtocolClient(kOtherPort).Ask(kDevSearchReq).body);
        EXPECT_NE(reply.find(R"("TCPPort":9000,)"), std::string::npos) << reply;
    }
    server->WaitForLog("cmd = 1531", 2); // its own broadcasts
    searcher.ExpectSilence();
}

TEST_F(DeviceSearch, AnyRequestMayComeThisWayAndNoDatagramDoesHarm)
{
    const std::string kGarbage(60000, '\xFF');
    ProtocolClient bystander(kOtherPort);
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
        {kKeepaliveReq, "", true},
        {kPtzControlReq, R"({"Name":"OPPTZControl"})", true},
        {kTimeQueryReq, "", true},
        {kTimeSettingReq, R"({"OPTimeSettingNoRTC":"never"})", true},
        {kSysManagerReq, "no JSON", true},
        {kLogQueryReq, R"({"Name":"OPLogQuery"})", true},
        {kGetChanTitleReq, "", true},
        {kUserManageReq, "", true},
        {kUserUsersReq, "", true},
        {kUserSettingReq, R"({"Name":"x"})", true},
        {kAlarmSubscribeReq, "", true},
        {kAlarmUnsubscribeReq, "", true},
        {kDevIpSettingReply, "{}", false},
        {9999, "{}", false},
        {0xFFFF, kGarbage.c_str(), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        searcher.Send(row.id, row.body);
        if (row.isAnswered)
            searcher.ReceiveReply(static_cast<uint16_t>(row.id + 1));
        else
            searcher.ExpectSilence();
    }
    EXPECT_EQ(server->CountLog("DevSearchThread"), 1); // what was not sent
    // The login by datagram counted on and touched no connection.
    EXPECT_EQ(bystander.Ask(kKeepaliveReq).header.ulSessionId, session);
    EXPECT_EQ(bystander.Login(), session + 2);
}

TEST_F(DeviceSearch, AFloodOfDatagramsKeepsNoConnectionWaiting)
{
    for (int datagram = 0; datagram < 1000; datagram++) // for more than a minute
        searcher.Send(kDevSearchReq);
    ProtocolClient(kOtherPort).Login();
}

TEST_F(DeviceSearch, SetsWhatPassesItsTestOnTheCameraThatIsNamed)
{
    const struct {
        std::string mac, rest;
        const char* requests; // the port of this protocol comes behind its enable, which is 0 here
    } rows[] = {
        {"02:AA:00:00:00:11", R"(","HttpPort":80,"TCPPort":9001})", ""},
        {"02:AA:00:00:00:10", R"(","HttpPort":80,"TCPPort":9001)", ""}, // breaks off
        {"", R"(","HttpPort":80,"TCPPort":9001})", ""},
        {"02:aa:00:00:00:10", R"("})", "10:00 9:FFFF "},
        {kMac,
         R"(","Submask":"0xFFFF","HostName":"cam-01","HostIP":"0x140200C0","GateWay":"010200c0","tcpPort":9001,)"
         R"("HTTPPort":80,"UDPPort":1})",
         "2:5000 10:00 9:2923 14:C0000201 0:C0000214 65:63616D2D3031 1:FFFF0000 "},
        {kMac, R"(","GateWay":1,"HostIP":null,"HostName":"-","Submask":[],"TCPPort":65537})",
         "10:00 9:0100 "},
        {kMac, R"(","HttpPort":1024,"TCPPort":1})", "10:00 9:0100 "},
        {kMac, R"(","HttpPort":1025,"TCPPort":1})", "2:0104 10:00 9:0100 "},
        {kMac, R"(","HttpPort":65534,"TCPPort":1})", "2:FEFF 10:00 9:0100 "},
        {kMac, R"(","HttpPort":65535,"TCPPort":1})", "10:00 9:0100 "},
    };
    AnsweringParamHost host;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mac + row.rest);
        searcher.Send(kDevIpSettingReq, R"({"MAC":")" + row.mac + row.rest);
        EXPECT_EQ(searcher.ReceiveReply(kDevIpSettingReply),
                  R"({"Name":"","Ret":100,"SessionID":"0x00000000"})");
        EXPECT_EQ(host.Take(), row.requests);
    }
}

} // namespace
