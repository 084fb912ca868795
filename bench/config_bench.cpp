// Measures the time in the handlers for every configuration object, ability and information by name, beside
// what cJSON takes to print the same tree. README.md says what is measured and how.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "camera/camera_commands.h"
#include "camera/parameter_block_layout.h"
#include "common/sysv_ipc.h"
#include "config/ability_report.h"
#include "config/get_config.h"
#include "config/set_config.h"
#include "config/system_information.h"
#include "hosts/parameter_defaults.h"
#include "protocol/connection_table.h"

namespace {

size_t g_allocations = 0;

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's and the library's names
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* old, size_t bytes);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* rest, timespec* left);
int __wrap_msgsnd(int queue, const void* message, size_t bytes, int flags);
ssize_t __wrap_msgrcv(int queue, void* message, size_t bytes, long type, int flags);

// Every allocation of the program passes here, those of libraries included.
void* malloc(size_t bytes)
{
    g_allocations++;
    return __libc_malloc(bytes);
}
void* calloc(size_t count, size_t bytes)
{
    g_allocations++;
    return __libc_calloc(count, bytes);
}
void* realloc(void* old, size_t bytes)
{
    g_allocations++;
    return __libc_realloc(old, bytes);
}

// The pauses that the protocol prescribes take no time.
int __wrap_clock_nanosleep(clockid_t, int, const timespec*, timespec*)
{
    return 0;
}

// A parameter host that answers at once and stores nothing: its reply is the request with result 0.
int __wrap_msgsnd(int, const void*, size_t, int)
{
    return 0;
}
ssize_t __wrap_msgrcv(int, void* message, size_t bytes, long type, int flags)
{
    if ((flags & IPC_NOWAIT) != 0) { // nothing waits from an earlier life
        errno = ENOMSG;
        return -1;
    }
    memset(message, 0, sizeof(long) + bytes);
    memcpy(message, &type, sizeof type);
    return static_cast<ssize_t>(bytes);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

constexpr int kConnection = 1000; // no descriptor: handlers only look it up in the table
constexpr double kRatioGoal = 1.5;

// One request as its handler gets it, and the reply's buffer.
class Exchange {
  public:
    Exchange(RequestHandler* handler, uint16_t id, const std::string& body) : handler_(handler)
    {
        WriteHeader(request_.data(), {.ucHeadFlag = kHeadFlag,
                                      .ucVersion = kVersion,
                                      .ucReserved2 = {},
                                      .ulSessionId = 1,
                                      .ulSeqNum = 1,
                                      .ucReserved12 = {},
                                      .usMessageId = id,
                                      .ulBodyLength = static_cast<uint32_t>(body.size())});
        body.copy(reinterpret_cast<char*>(request_.data()) + kHeaderBytes, kMaxBodyBytes);
        requestLen_ = static_cast<int>(kHeaderBytes + body.size());
    }
    // Returns the body's bytes; 0 without a reply.
    size_t Run()
    {
        int bytes = 0;
        handler_(kConnection, request_.data(), requestLen_, reply_.data(), &bytes);
        return bytes > 0 ? static_cast<size_t>(bytes) - kHeaderBytes : 0;
    }
    JsonPtr RunForTree()
    {
        const size_t bytes = Run();
        return JsonPtr(cJSON_ParseWithLength(reinterpret_cast<char*>(reply_.data()) + kHeaderBytes, bytes));
    }

  private:
    RequestHandler* handler_;
    std::vector<uint8_t> request_ = std::vector<uint8_t>(kReadBytes + 1);
    std::vector<uint8_t> reply_ = std::vector<uint8_t>(kReplyBytes);
    int requestLen_ = 0;
};

std::string Named(const std::string& name)
{
    return R"({"Name":")" + name + "\"}";
}

void MeasureHandler(benchmark::State& state, RequestHandler* handler, uint16_t id, const std::string& body)
{
    Exchange exchange(handler, id, body);
    if (exchange.Run() == 0)
        return state.SkipWithError("no reply");
    const size_t before = g_allocations;
    exchange.Run();
    state.counters["allocations"] = static_cast<double>(g_allocations - before);
    for (auto _ : state)
        benchmark::DoNotOptimize(exchange.Run());
}

void MeasurePrinting(benchmark::State& state, RequestHandler* handler, uint16_t id, const std::string& body)
{
    const JsonPtr tree = Exchange(handler, id, body).RunForTree();
    if (tree == nullptr)
        return state.SkipWithError("the reply is no JSON");
    for (auto _ : state) {
        const JsonText text(cJSON_PrintUnformatted(tree.get()));
        benchmark::DoNotOptimize(text.get());
    }
}

void Register(const std::string& name, RequestHandler* handler, uint16_t id, const std::string& body,
              bool isCompared)
{
    benchmark::RegisterBenchmark((name + "|handler").c_str(), MeasureHandler, handler, id, body);
    if (isCompared)
        benchmark::RegisterBenchmark((name + "|cJSON").c_str(), MeasurePrinting, handler, id, body);
}

// The object as a get gives it: a recorder that saves an unchanged page.
std::string ObjectToSet(const std::string& name)
{
    const bool isEncode = name.starts_with("Simplify.Encode");
    const std::string readName = isEncode ? "Simplify.Encode" : name;
    const JsonPtr reply = Exchange(ProcessGetConfigReq, kGetConfigReq, Named(readName)).RunForTree();
    const cJSON* const object = GetJsonMember(reply.get(), readName.c_str());
    const JsonText text(cJSON_PrintUnformatted(isEncode ? cJSON_GetArrayItem(object, 0) : object));
    return text != nullptr ? text.get() : "null";
}

void RegisterAll()
{
    for (const NamedAnswer& row : GetConfigAnswers())
        Register("get " + std::string(row.name), ProcessGetConfigReq, kGetConfigReq, Named(row.name), true);
    for (const NamedAnswer& row : Abilities())
        Register("ability " + std::string(row.name), ProcessGetAbilityReq, kGetAbilityReq, Named(row.name),
                 true);
    for (const char* name : {"SystemInfo", "StorageInfo"})
        Register("information " + std::string(name), ProcessSysinfoReq, kSysinfoReq, Named(name), true);
    const JsonPtr network =
        Exchange(ProcessGetConfigReq, kGetConfigReq, Named("NetWork.NetCommon")).RunForTree();
    const char* const mac = GetJsonString(GetJsonMember(network.get(), "NetWork.NetCommon"), "MAC");
    for (const SettableObject& row : SettableObjects()) {
        const std::string name = row.name;
        Register("set " + name, ProcessSetConfigReq, kSetConfigReq,
                 R"({"MAC":")" + std::string(mac != nullptr ? mac : "") + R"(","Name":")" + name + "\",\"" +
                     name + "\":" + ObjectToSet(name) + "}",
                 false);
    }
}

// Collects the medians and prints one line for each name.
class RatioTable : public benchmark::BenchmarkReporter {
  public:
    explicit RatioTable(FILE* out) : out_(out) {}
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            const std::string name = run.run_name.function_name;
            const size_t bar = name.rfind('|');
            if (run.error_occurred) {
                if (run.repetition_index == 0)
                    fprintf(out_, "%s: %s\n", name.substr(0, bar).c_str(), run.error_message.c_str());
                hasFailed_ = true;
            } else if (run.aggregate_name == "median") {
                Add(name.substr(0, bar), name.substr(bar + 1) == "handler", run);
            }
        }
    }
    void Finalize() override
    {
        int above = 0;
        fprintf(out_, "| Name | handler ns | allocations | cJSON ns | ratio |\n|---|---|---|---|---|\n");
        for (const auto& [name, row] : rows_) {
            fprintf(out_, "| %s | %.0f | %.0f |", name.c_str(), row.handlerNs, row.allocations);
            const double ratio = row.cJsonNs > 0 ? row.handlerNs / row.cJsonNs : 0;
            above += ratio > kRatioGoal ? 1 : 0;
            if (row.cJsonNs > 0)
                fprintf(out_, " %.0f | %.2f |\n", row.cJsonNs, ratio);
            else
                fprintf(out_, " | |\n");
        }
        fprintf(out_, "\n%d names above %.1f times\n", above, kRatioGoal);
    }
    [[nodiscard]] bool HasFailed() const { return hasFailed_ || rows_.empty(); }

  private:
    struct Row {
        double handlerNs = 0, cJsonNs = 0, allocations = 0;
    };
    void Add(const std::string& name, bool isHandler, const Run& run)
    {
        if (rows_.empty() || rows_.back().first != name)
            rows_.emplace_back(name, Row{});
        Row& row = rows_.back().second;
        (isHandler ? row.handlerNs : row.cJsonNs) = run.GetAdjustedRealTime();
        if (isHandler)
            row.allocations = run.counters.at("allocations").value;
    }

    FILE* out_;
    bool hasFailed_ = false;
    std::vector<std::pair<std::string, Row>> rows_; // in the order of measurement
};

// Handlers write to the log and to standard output: both go nowhere, the table to the old output.
FILE* QuietOutput()
{
    FILE* const out = fdopen(dup(STDOUT_FILENO), "w");
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    // Defaults that the command line may replace.
    std::vector<char*> arguments{argv[0]};
    std::string defaults[] = {"--benchmark_repetitions=9", "--benchmark_min_time=0.02",
                              "--benchmark_report_aggregates_only=true"};
    for (std::string& argument : defaults)
        arguments.push_back(argument.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;

    FILE* const out = QuietOutput();
    const ShmAttachment settings(IpcShareMemInit(kSysConfigKey, kSysConfigBytes, kSysConfigMode));
    if (!settings || CameraInit(1, 5) != 0 || AddFd(kConnection, "192.0.2.1", 0, 1) != 0) {
        fprintf(out, "velmora-config-bench: no parameter block; run in tests/sandbox.sh\n");
        return 1;
    }
    WriteDefaultParameters(settings.get());
    RegisterAll();
    RatioTable table(out);
    benchmark::RunSpecifiedBenchmarks(&table);
    fclose(out);
    return table.HasFailed() ? 1 : 0;
}
