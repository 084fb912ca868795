#include "config/ability_answers.h"

namespace {

constexpr int kEncoders = 32;
constexpr char kUsedEncoder[] = R"({"Level":41,"Profile":2})";
constexpr char kUnusedEncoder[] = R"({"Level":0,"Profile":0})";

} // namespace

const char kMultiLanguage[] =
    R"(["Arabic","Brazilian","Bulgarian","Czech","Dutch","English","Farsi","Finnish","French","German",)"
    R"("Greek","Hebrew","Hungarian","Indonesian","Italian","Japanese","Poland","Portugal","Romanian",)"
    R"("Russian","SimpChinese","Slovakia","Spanish","Swedish","Thai","TradChinese","Turkey","Vietnamese"])";

const char kBlindCapability[] = R"({"BlindCoverNum":4})";
const char kSupportExtRecord[] = R"({"AbilityPram":"0x00000000"})";
const char kPtzControl[] = R"({"PTZPositon":"0x00000001"})";
const char kAhdEncodeL[] = R"({"AHDLMask":"0x00000000000000000000000000000000"})";
const char kMotionArea[] = R"({"GridColumn":22,"GridRow":18})";
const char kMultiVstd[] = R"("PAL|NTSC")";
const char kCameraAbility[] =
    R"({"Count":8,"ElecLevel":50,"Luminance":0,"Speeds":["0x0000411A","0x0000208D","0x00000FA0",)"
    R"("0x000007D0","0x000003E8","0x000001F4","0x000000FA","0x00000064"],"Status":0,"Version":""})";

const char kSystemFunction[] =
    R"({"AlarmFunction":{"AlarmConfig":true,"BlindDetect":true,"Consumer433Alarm":false,)"
    R"("ConsumerRemote":false,"IPCAlarm":false,"LossDetect":true,"MotionDetect":true,"NetAbort":false,)"
    R"("NetAbortExtend":false,"NetAlarm":false,"NetIpConflict":false,"StorageFailure":false,)"
    R"("StorageLowSpace":false,"StorageNotExist":false,"VideoAnalyze":false},)"
    R"("CommFunction":{"CommRS232":false,"CommRS485":false},)"
    R"("EncodeFunction":{"CombineStream":false,"DoubleStream":true,"IFrameRange":false,"SnapStream":true,)"
    R"("LowBitRate":false,"WaterMark":false},)"
    R"("InputMethod":{"NoSupportChinese":false},)"
    R"("MobileDVR":{"CarPlateSet":false,"DVRBootType":false,"DelaySet":false,"GpsTiming":false,)"
    R"("StatusExchange":false},)"
    R"("NetServerFunction":{"MACProtocol":false,"MonitorPlatform":false,"NATProtocol":false,"Net3G":true,)"
    R"("Net4G":false,"NetARSP":true,"NetAlarmCenter":true,"NetAnJuP2P":false,"NetBaiduCloud":false,)"
    R"("NetBjlThy":false,"NetDAS":true,"NetDDNS":true,"NetDHCP":true,"NetDNS":true,"NetDataLink":false,)"
    R"("NetEmail":true,"NetFTP":true,"NetGlobalEyes":false,"NetGodEyeAlarm":false,"NetIPFilter":false,)"
    R"("NetIPv6":false,"NetKaiCong":false,"NetKeyboard":false,"NetLocalSdkPlatform":false,)"
    R"("NetMobile":false,"NetMobileWatch":false,"NetMutliCast":false,"NetNTP":true,"NetNat":false,)"
    R"("NetOpenVPN":false,"NetPMS":false,"NetPPPoE":false,"NetPhoneMultimediaMsg":false,)"
    R"("NetPhoneShortMsg":false,"NetPlatMega":false,"NetPlatShiSou":false,"NetPlatVVEye":false,)"
    R"("NetPlatXingWang":false,"NetRTSP":true,"NetSPVMN":false,"NetTUTKIOTC":false,"NetUPNP":true,)"
    R"("NetVPN":false,"NetWifi":true,"NetWifiMode":false,"PlatFormGBeyes":false,"VLMHeartBeat":false},)"
    R"("OtherFunction":{"AlterDigitalName":true,"DownLoadPause":true,"HddLowSpaceUseMB":false,)"
    R"("HideDigital":false,"MusicFilePlay":false,"NOHDDRECORD":false,"NotSupportAH":true,)"
    R"("NotSupportAV":true,"NotSupportTalk":false,"SDsupportRecord":false,"ShowAlarmLevelRegion":true,)"
    R"("SupportAbnormitySendMail":false,"ShowFalseCheckTime":false,"SupportBT":true,)"
    R"("SupportC7Platform":false,"SupportCamareStyle":true,"SupportCameraMotorCtrl":false,)"
    R"("SupportCfgCloudupgrade":false,"SupportCloudUpgrade":false,"SupportCommDataUpload":false,)"
    R"("SupportCustomOemInfo":false,"SupportDigitalEncode":false,"SupportDigitalPre":false,)"
    R"("SupportDimenCode":true,"SupportEncodeAddBeep":false,"SupportFTPTest":false,)"
    R"("SupportFishEye":false,"SupportImpRecord":false,"SupportLowLuxMode":false,"SupportMailTest":true,)"
    R"("SupportMaxPlayback":false,"SupportModifyFrontcfg":false,"SupportNVR":false,)"
    R"("SupportNetLocalSearch":false,"SupportOSDInfo":false,"SupportOnvifClient":false,)"
    R"("SupportPOS":false,"SupportPlayBackExactSeek":true,"SupportPtzIdleState":false,)"
    R"("SupportRTSPClient":false,"SupportResumePtzState":false,"SupportSPVMNNasServer":false,)"
    R"("SupportSetDigIP":false,"SupportShowConnectStatus":false,"SupportShowProductType":false,)"
    R"("SupportSlowMotion":false,"SupportSmallChnTitleFont":false,"SupportSnapCfg":false,)"
    R"("SupportSplitControl":false,"SupportStorageFailReboot":false,"SupportStorageNAS":false,)"
    R"("SupportSwitchResolution":false,"SupportTextPassword":true,"SupportTimeZone":true,)"
    R"("SupportUserProgram":false,"SupportWriteLog":false,"Supportonviftitle":true,)"
    R"("SuppportChangeOnvifPort":true,"TitleAndStateUpload":true,"USBsupportRecord":false},)"
    R"("PreviewFunction":{"GUISet":true,"Tour":true},)"
    R"("TipShow":{"NoBeepTipShow":false,"NoEmailTipShow":false}})";

void BuildAVEncEncodeStaticParam(ReplyText* text)
{
    Add(text, "[");
    AddRepeated(text, kUsedEncoder, kEncoders);
    Add(text, "]");
}

void BuildEncodeStaticParam(ReplyText* text)
{
    Add(text, "[@,", Plain(kUsedEncoder));
    AddRepeated(text, kUnusedEncoder, kEncoders - 1);
    Add(text, "]");
}
