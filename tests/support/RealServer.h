#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "ScriptedPeer.h"

// A server that a script of tests/support runs for as long as this holds the other end of its standard input.
class RealServer {
 public:
  explicit RealServer(std::string const& name_i) {
    // Between choosing a port and its use another program may take it.
    for (int attempt = 0; attempt < 3 && !myIsReady; ++attempt) {
      Stop();
      myPort = RefusedPort().Port();
      Start(std::string(PLX_SOURCE_DIR) + "/tests/support/" + name_i + ".sh");
    }
  }
  RealServer(RealServer const&) = delete;
  RealServer& operator=(RealServer const&) = delete;
  ~RealServer() { Stop(); }

  bool IsReady() const { return myIsReady; }
  std::string Folder() const { return myFolder; }
  std::uint16_t Port() const { return myPort; }
  std::string Address() const { return "127.0.0.1:" + std::to_string(myPort); }

 private:
  void Start(std::string const& script_i) {
    char folder[] = "/tmp/plx-server-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    ASSERT_EQ(chmod(folder, 0755), 0);  // the servers' workers are not root
    myFolder = folder;
    int input[2];
    int output[2];
    ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string port = std::to_string(myPort);
    std::string shell = "bash";
    std::string script = script_i;
    char* arguments[] = {shell.data(), script.data(), myFolder.data(), port.data(), nullptr};
    EXPECT_EQ(posix_spawnp(&myScript, "bash", &actions, nullptr, arguments, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    myInput = input[1];
    char byte;
    myIsReady = read(output[0], &byte, 1) == 1;  // it says so, or ends
    close(output[0]);
  }
  void Stop() {
    if (myInput != -1) close(std::exchange(myInput, -1));
    if (myScript != -1) waitpid(std::exchange(myScript, -1), nullptr, 0);
  }

  std::uint16_t myPort = 0;
  std::string myFolder;
  pid_t myScript = -1;
  int myInput = -1;
  bool myIsReady = false;
};
