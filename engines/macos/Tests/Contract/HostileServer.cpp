#include "Contract/HostileServer.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "Base/POSIX/MessageDigest.h"

namespace installer::test {

namespace {

constexpr const char* kNames = "cdn.kelo.example,mirror.kelo.example,odd.kelo.example";

constexpr const char* kScript = KELO_TESTS_FOLDER "/EndToEnd/hostile_cdn.py";

std::string readLine(int descriptor) {
  std::string line;
  char byte = 0;
  while (read(descriptor, &byte, 1) == 1 && byte != '\n') line += byte;
  return line;
}

}  // namespace

HostileServer::HostileServer(const nlohmann::json& paths, const nlohmann::json& hosts) {
  const auto plan = folder_ / "plan.json";
  std::ofstream{plan} << nlohmann::json{{"paths", paths}, {"hosts", hosts}};

  Pipe input = makePipe();
  Pipe output = makePipe();
  const auto child = spawn({"/usr/bin/python3",
                            {kScript, "--folder", folder_.path(), "--names", kNames, "--script", plan},
                            input.reading.get(),
                            output.writing.get(),
                            STDERR_FILENO});
  EXPECT_TRUE(child);
  if (!child) return;
  child_ = *child;
  output.writing.reset();
  input_ = std::move(input.writing);

  const auto ready = nlohmann::json::parse(readLine(output.reading.get()), nullptr, false);
  EXPECT_TRUE(ready.is_object()) << "hostile_cdn.py didn't start";
  if (!ready.is_object()) return;
  port_ = ready.at("port").get<int>();
  authority_ = ready.at("authority").get<std::string>();
}

HostileServer::~HostileServer() {
  stop();
}

void HostileServer::stop() {
  if (!input_) return;
  input_.reset();
  (void)waitForExit(child_);
}

LinuxHostSettings HostileServer::settings() const {
  LinuxHostSettings settings;
  settings.root = folder_.path();
  settings.extraCertificateAuthority = authority_;
  std::filesystem::create_directories(settings.temporaryDirectory());
  for (const auto* const name : {"cdn.kelo.example", "mirror.kelo.example", "odd.kelo.example"}) {
    settings.hostAddresses[name] = fmt::format("127.0.0.1:{}", port_);
  }
  return settings;
}

std::vector<HostileServer::Request> HostileServer::requests() {
  stop();
  std::ifstream file{joined(folder_.path(), "requests.json")};
  std::vector<Request> requests;
  for (const auto& record : nlohmann::json::parse(file)) {
    Request request;
    request.path = record.at("path");
    if (!record.at("from").is_null()) request.from = record.at("from").get<std::int64_t>();
    if (!record.at("ifRange").is_null()) request.ifRange = record.at("ifRange");
    if (!record.at("status").is_null()) request.status = record.at("status");
    request.sent = record.at("sent");
    requests.push_back(request);
  }
  return requests;
}

std::string hostilePattern(std::size_t count, int seed) {
  std::string block;
  for (int index = 0; index < 256; ++index) {
    const auto text = fmt::format("{}:{}", seed, index);
    MessageDigest digest;
    digest.update(text);
    std::ranges::copy(digest.finish(), std::back_inserter(block));
  }
  std::string bytes;
  while (bytes.size() < count) bytes += block;
  bytes.resize(count);
  for (std::size_t offset = 0; offset + 8 < count; offset += block.size()) {
    for (unsigned shift = 0; shift < 8; ++shift) {
      bytes[offset + shift] = static_cast<char>((offset >> (8U * (7U - shift))) & 0xffU);
    }
  }
  return bytes;
}

}  // namespace installer::test
