// A directory of a test's own, removed with what is in it at the end of the scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class TemporaryDirectory {
  public:
    TemporaryDirectory()
    {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string File(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_ = std::filesystem::temp_directory_path() / "velmora-test-XXXXXX";
};
