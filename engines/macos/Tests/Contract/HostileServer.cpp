#include "Contract/HostileServer.h"

#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <openssl/sha.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace installer::test {

namespace {

constexpr const char* names = "cdn.kelo.example,mirror.kelo.example,odd.kelo.example";

constexpr const char* script = KELO_TESTS_FOLDER "/EndToEnd/hostile_cdn.py";

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

  int input[2];
  int output[2];
  EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(output, O_CLOEXEC), 0);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], 0);
  posix_spawn_file_actions_adddup2(&actions, output[1], 1);
  std::vector<std::string> words{"python3", script, "--folder", folder_.path(),
                                 "--names", names,  "--script", plan};
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  EXPECT_EQ(posix_spawn(&child_, "/usr/bin/python3", &actions, nullptr, arguments.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  input_ = input[1];

  const auto ready = nlohmann::json::parse(readLine(output[0]), nullptr, false);
  close(output[0]);
  EXPECT_TRUE(ready.is_object()) << "hostile_cdn.py didn't start";
  if (!ready.is_object()) return;
  port_ = ready.at("port").get<int>();
  authority_ = ready.at("authority").get<std::string>();
}

HostileServer::~HostileServer() {
  stop();
}

void HostileServer::stop() {
  if (input_ < 0) return;
  close(input_);
  input_ = -1;
  waitpid(child_, nullptr, 0);
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
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    block.append(reinterpret_cast<const char*>(digest), sizeof digest);
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
