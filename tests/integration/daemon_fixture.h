// Runs the real faceDet on the host platform in a private runtime directory.
#ifndef FACEDET_TEST_DAEMON_FIXTURE_H
#define FACEDET_TEST_DAEMON_FIXTURE_H

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process_helpers.h"
#include "temp_dir.h"

using namespace std::chrono_literals;

class DaemonTest : public ::testing::Test {
  protected:
    // Removes the shared-memory segments of every key handed out.
    ~DaemonTest() override;

    // A private runtime directory and shared-memory key, so tests run in parallel.
    std::map<std::string, std::string> daemon_env() const;
    // A raw clip of `frames` synthetic frames in the test's directory.
    std::string raw_clip(int frames);
    std::unique_ptr<ChildProcess> start(const std::map<std::string, std::string> &extraEnv,
                                        std::vector<std::string> args = {}, bool withSource = true);
    // The camera's own configuration instead (camera_qemu_script), with the
    // same private runtime directory and key; extraEnv names its source.
    std::unique_ptr<ChildProcess> start_camera_qemu(const std::map<std::string, std::string> &extraEnv);

    TempDir dir_;
    mutable std::vector<int> keys_;
};

// scripts/camera-qemu.sh, the camera build with its MI libraries loaded at run
// time, under qemu; empty when qemu-arm or its builds are missing (the arm
// preset's mi_sdk target, the camera-qemu preset) or in a sanitizer build.
std::string camera_qemu_script();

// Links the model files into a daemon's working directory.
void link_models(const std::string &workDir);

// Every line of `expected` occurs in `text`, in this order.
::testing::AssertionResult InOrder(const std::string &text, const std::vector<std::string> &expected);

#endif
