#include "hosts/server_runner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "tests/hosts/temporary_directory.h"

namespace {

// Lines that the programs run by the tests write, read as they come.
class Events {
  public:
    Events()
    {
        mkfifo(path_.c_str(), 0600);
        stream_.open(path_, std::ios::in | std::ios::out); // both ends: opening waits for nobody
    }
    std::string Next()
    {
        std::string line;
        std::getline(stream_, line);
        return line;
    }
    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    TemporaryDirectory directory_;
    std::string path_ = directory_.File("events");
    std::fstream stream_;
};

std::vector<std::string> Shell(const std::string& script)
{
    return {"/bin/sh", "-c", script};
}

TEST(ServerRunner, RestartsARunningServer)
{
    Events events;
    ServerRunner runner(Shell("trap 'echo asked > " + events.path() + "; exit' TERM; echo started > " +
                              events.path() + "; while :; do sleep 0.1; done"));
    runner.Start();
    EXPECT_EQ(events.Next(), "started");
    runner.Restart();
    EXPECT_EQ(events.Next(), "asked");
    EXPECT_EQ(events.Next(), "started");
    runner.Stop();
    EXPECT_EQ(events.Next(), "asked");
}

TEST(ServerRunner, KillsAServerThatDoesNotEndWhenAsked)
{
    Events events;
    ServerRunner runner(Shell("trap '' TERM; echo $$ > " + events.path() + "; while :; do sleep 0.1; done"));
    runner.Start();
    const pid_t pid = static_cast<pid_t>(std::atoi(events.Next().c_str()));
    ASSERT_GT(pid, 0);
    runner.Stop();
    EXPECT_EQ(kill(pid, 0), -1) << "the process is gone, and collected";
}

} // namespace
