// Faults from outside the process against the real daemon, one row each: the
// camera's control process, the control socket, the shared segment, the
// runtime folder and trace file, the frame source, the model, and signals.
// After every fault the daemon must still analyse frames, obey the control
// socket (unless the row says why it cannot), and end in order with status 0
// within 2 s of the signal.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <thread>

#include "control.h"
#include "daemon_fixture.h"
#include "share_memory/share_memory.h"
#include "share_memory/shm_lock.h"

namespace {

using Bytes = std::vector<uint8_t>;
const char kDropStart[] = "camera takes no packets (";
const char kDropEnd[] = "camera takes packets again, ";
const char kLockLine[] = "@@@@@@@@@@@@@@@@@@@@@@@@@@@@";
const char kFrameLine[] = "--------------frameNumber = ";
const char kInvoke[] = " ******** invoke time";

sockaddr_un unix_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    return address;
}

// Sends one datagram, retrying while the receiver's queue is full.
bool send_datagram(const std::string &path, const Bytes &bytes) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un to = unix_address(path);
    ssize_t sent = -1;
    for (int tries = 0; tries < 500 && sent < 0; ++tries) {
        sent = sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to),
                      sizeof to);
        if (sent < 0 && errno != EAGAIN) {
            break;
        }
        usleep(sent < 0 ? 10000 : 0);
    }
    close(fd);
    return sent >= 0;
}

// The camera's control process as the test plays it: bound to the camera's
// path, it answers each packet with what `answer` returns, or reads nothing while hung.
class CameraPeer {
  public:
    using Answer = std::function<std::vector<Bytes>(const Bytes &)>;
    CameraPeer(const std::string &path, Answer answer, bool hung) : hung(hung), path_(path), answer_(answer) {
        unlink(path.c_str());
        const sockaddr_un own = unix_address(path);
        bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own);
        thread_ = std::thread([this] { run(); });
    }
    ~CameraPeer() {
        stop_ = true;
        thread_.join();
        close(fd_);
        unlink(path_.c_str());
    }
    // Sends `bytes` to the daemon from a socket of its own (abstract name), closed right after.
    void reply_from_a_stray(const Bytes &bytes) {
        const int stray = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un any{};
        any.sun_family = AF_UNIX;
        bind(stray, reinterpret_cast<const sockaddr *>(&any), sizeof(sa_family_t));
        EXPECT_TRUE(known_);
        sendto(stray, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&daemon_),
               daemonLength_);
        close(stray);
    }
    std::atomic<bool> hung;
    std::atomic<int> packets{0};

  private:
    void run() {
        std::vector<uint8_t> buffer(70000);
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (hung || poll(&p, 1, 20) <= 0) {
                usleep(hung ? 20000 : 0);
                continue;
            }
            sockaddr_un from{};
            socklen_t length = sizeof from;
            const ssize_t n =
                recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr *>(&from), &length);
            if (n < 0) {
                continue;
            }
            if (!known_) {  // the daemon's own address, kept for reply_from_a_stray
                daemon_ = from;
                daemonLength_ = length;
                known_ = true;
            }
            ++packets;
            for (const Bytes &reply : answer_(Bytes(buffer.begin(), buffer.begin() + n))) {
                sendto(fd_, reply.data(), reply.size(), MSG_DONTWAIT,
                       reinterpret_cast<const sockaddr *>(&from), length);
            }
        }
    }
    std::string path_;
    Answer answer_;
    std::atomic<bool> stop_{false};
    int fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    std::atomic<bool> known_{false};
    sockaddr_un daemon_{};
    socklen_t daemonLength_ = 0;
    std::thread thread_;
};

std::vector<Bytes> acknowledge(const Bytes &) {
    return {{0x90, 0x41, 0xFF}, {0x90, 0x51, 0xFF}};
}

// A process that takes the segment's lock and keeps it, stopped; SIGCONT lets go, SIGKILL does not.
pid_t lock_holder(key_t key) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int id = shmget(key, 0, 0);
        auto *map = id < 0 ? nullptr : static_cast<TrackShareMap *>(shmat(id, nullptr, 0));
        if (map == nullptr || map == reinterpret_cast<TrackShareMap *>(-1)) {
            _exit(1);
        }
        timespec far{};
        clock_gettime(CLOCK_REALTIME, &far);
        far.tv_sec += 60;
        shm_lock_until(&map->mutex, far);
        raise(SIGSTOP);
        shm_lock_release(&map->mutex);
        _exit(0);
    }
    waitpid(pid, nullptr, WUNTRACED);
    return pid;
}

void reap(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

}  // namespace

// What a row works with: the daemon's folder and key, the peers it starts, and what it leaves to undo.
struct Faults {
    Faults(const std::string &work, const std::map<std::string, std::string> &daemonEnv)
        : workDir(work),
          dir(daemonEnv.at("FACEDET_RUNTIME_DIR")),
          key(std::stoi(daemonEnv.at("FACEDET_SHM_KEY"))),
          env(daemonEnv) {
        env["FACEDET_LOOP"] = "1";
    }
    ~Faults() {
        camera.reset();
        for (auto it = undo.rbegin(); it != undo.rend(); ++it) {
            (*it)();
        }
    }
    std::string workDir;  // the daemon's working folder (model files)
    std::string dir;      // runtime folder (sockets, trace file)
    key_t key;
    std::map<std::string, std::string> env;
    ChildProcess *daemon = nullptr;
    std::unique_ptr<CameraPeer> camera;
    std::vector<std::unique_ptr<ChildProcess>> sims;
    std::vector<std::function<void()>> undo;
    std::string skip;  // set when the machine cannot stage the fault

    std::string log() const { return daemon->out() + daemon->err(); }
    // Waits until `text` has occurred at least `times` times in the daemon's output.
    bool wait_count(const std::string &text, size_t times, std::chrono::milliseconds limit = 20s) const {
        return eventually([&] { return count_of(log(), text) >= times; }, limit);
    }
    bool keeps_analysing(size_t more = 15) const {
        return wait_count(kFrameLine, count_of(daemon->out(), kFrameLine) + more);
    }
    // Again while the daemon's queue is full.
    bool control(uint8_t second) const {
        const uint8_t bytes[2] = {0x01, second};
        return eventually([&] { return send_control(dir, bytes); }, 5s);
    }
    void start_camera(CameraPeer::Answer answer = acknowledge, bool hung = false) {
        camera = std::make_unique<CameraPeer>(dir + "/featureCamera_addr.socket", std::move(answer), hung);
    }
    void start_camera_sim(const std::string &log) {
        sims.push_back(spawn(CAMERA_SIM_BIN, {"--runtime-dir", dir, "--log", dir + "/" + log}, dir));
    }
    // A tmpfs of `kilobytes` as the runtime folder, or a skip where the machine does not allow mounts.
    bool runtime_on_tmpfs(const char *name, int kilobytes, unsigned long flags) {
        dir += name;
        mkdir(dir.c_str(), 0755);
        if (mount("tmpfs", dir.c_str(), "tmpfs", flags,
                  ("size=" + std::to_string(kilobytes) + "k").c_str()) != 0) {
            skip = "no tmpfs mounts here";
            return false;
        }
        undo.push_back([path = dir] { umount(path.c_str()); });
        return true;
    }
};

// Beyond "frames go on, status 0 within 2 s of the signal, shutdown lines in order":
enum Holds {
    kEverything,      // frames were analysed before the fault and after, and control is obeyed
    kNoControl,       // the same, but the row says why control cannot be obeyed
    kOrderlyEnd,      // the row brings the daemon into a state and only the signal is checked
    kOrderlyEndEarly  // the same, before the first analysed frame
};

struct FaultRow {
    const char *name;
    std::function<void(Faults &)> before;  // staged before the daemon starts
    std::function<void(Faults &)> during;  // once frames are analysed; asserts what must hold
    Holds holds = kEverything;
    int sig = SIGTERM;
};

void PrintTo(const FaultRow &row, std::ostream *os) {
    *os << row.name;
}

class FaultMatrix : public DaemonTest, public ::testing::WithParamInterface<FaultRow> {};

TEST_P(FaultMatrix, DaemonSurvivesAndStopsInOrder) {
    const FaultRow &row = GetParam();
    Faults f(dir_.path(), daemon_env());
    if (row.before) {
        row.before(f);
    }
    if (!f.skip.empty()) {
        GTEST_SKIP() << f.skip;
    }
    f.env["FACEDET_RUNTIME_DIR"] = f.dir;
    auto daemon = start(f.env);
    f.daemon = daemon.get();
    if (row.holds < kOrderlyEnd) {
        ASSERT_TRUE(f.wait_count(std::string(kFrameLine) + "12-", 1, 60s)) << f.log();
    }
    if (row.during) {
        row.during(f);
    }
    if (row.holds < kOrderlyEnd) {
        EXPECT_TRUE(f.keeps_analysing()) << "frames stopped";
    }
    if (row.holds == kEverything) {
        ASSERT_TRUE(f.control(0x02));
        EXPECT_TRUE(f.wait_count("MsgBuf[1] == 0x2", 1, 10s)) << "control not obeyed";
    }
    const auto signalled = std::chrono::steady_clock::now();
    daemon->signal(row.sig);
    EXPECT_EQ(daemon->wait_exit(5s), 0) << f.log().substr(0, 4000);
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, 2s);
    const std::string out = daemon->out();
    EXPECT_EQ(count_of(out, "program exit abnormally!"), 1u);
    EXPECT_EQ(count_of(out, "QMT_Video_Stream_Stop succeed!"), 1u);
    const std::vector<std::string> tail = {"program exit abnormally!",
                                           "faceDet release!",
                                           "get_stream_thread exit",
                                           "[ST_Vpe_StopPort 168]exec function pass\n",
                                           "(QMT_Video_Stream_Stop 2517)exec function pass\n",
                                           "QMT_Video_Stream_Stop succeed!\n"};
    if (row.holds == kOrderlyEndEarly) {
        EXPECT_TRUE(InOrder(out, tail));
        return;
    }
    std::vector<std::string> order = {
        "faceDet starting!\n",
        "g_stream_stauts[0].u32InputChn == 0  g_stream_stauts[0].u32InputPort == 1\n",
        "[qmt_rgn_init 569]exec function pass\n",
        "[ST_Vpe_StartPort 161]exec function pass\n",
        "(QMT_Video_Stream_Start 2580)exec function pass\n",
        "(QMT_Video_Stream_Start 2582)exec function pass\n",
        "QMT_Stream_Stauts_t u32Enable=1, u32InputChn=0; u32InputPort=1; ePixelFormat=11; "
        "eBindType=1;u32Width=416; u32Height=234; u32FrameRate=30; stream_thread_pid=",
        "; dstChnPort=7\n",
        "--------------frameNumber = 10-----------------",
        " ******** get frame time =["};
    order.insert(order.end(), tail.begin(), tail.end());
    EXPECT_TRUE(InOrder(out, order));
    // The warm-up frames are only counted.
    EXPECT_GT(out.find(" ******** get frame time"), out.find("--------------frameNumber = 10-"));
}

void break_models(Faults &f, bool corrupt) {
    for (const char *name : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        if (corrupt) {
            write_file(f.workDir + "/" + name, std::string(5000, '\x5a'));
        } else {
            symlink("missing-model", (f.workDir + "/" + name).c_str());
        }
    }
}

void framing_runs_without_a_detector(Faults &f) {
    EXPECT_EQ(count_of(f.daemon->err(), "face detector: cannot load model ./slim-320"), 1u) << f.log();
    ASSERT_TRUE(f.control(0x01));
    EXPECT_TRUE(f.wait_count(kInvoke, 10));
}

const FaultRow kRows[] = {
    // ------------------------------------------------------ the camera's control process
    {"CameraAbsent", nullptr,
     [](Faults &f) {
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_EQ(count_of(f.log(), kDropStart), 1u) << "one line when drops begin, not one per packet";
     }},
    {"CameraHungThenReadingAgain", [](Faults &f) { f.start_camera(acknowledge, true); },
     [](Faults &f) {
         ASSERT_TRUE(f.wait_count(kDropStart, 1)) << f.log();
         EXPECT_TRUE(f.keeps_analysing(30));
         f.camera->hung = false;
         ASSERT_TRUE(f.wait_count(kDropEnd, 1)) << "moves reach the camera again";
         const int seen = f.camera->packets;
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_GT(f.camera->packets, seen + 5);
         EXPECT_EQ(count_of(f.log(), kDropStart), 1u);
     }},
    // The kernel refuses the send limit and the autobind: the trace says so,
    // and a hung camera still cannot hold the frame loop in a send.
    {"CameraSocketOptionsRefused",
     [](Faults &f) {
         f.env["LD_PRELOAD"] = FACEDET_REFUSE_CALLS_LIB;
         f.env["FACEDET_TEST_REFUSE"] = "1";
         const char *asan = getenv("ASAN_OPTIONS");
         f.env["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":verify_asan_link_order=0";
         f.start_camera(acknowledge, true);
     },
     [](Faults &f) {
         EXPECT_EQ(count_of(f.log(),
                            "featureCamera_udp_init] setsockopt(SO_SNDTIMEO): Protocol not available; "
                            "sends to the camera will not wait for room\n"),
                   1u)
             << f.log().substr(0, 3000);
         EXPECT_EQ(count_of(f.log(),
                            "featureCamera_udp_init] bind (autobind): Address already in use; the "
                            "camera's replies cannot reach this socket\n"),
                   1u);
         ASSERT_TRUE(f.wait_count(kDropStart, 1)) << f.log().substr(0, 3000);
         EXPECT_TRUE(f.keeps_analysing(30));
     }},
    {"CameraKilledAndRestarted", [](Faults &f) { f.start_camera_sim("camera1.log"); },
     [](Faults &f) {
         f.sims.back()->signal(SIGKILL);
         f.sims.back()->wait_exit(5s);
         ASSERT_TRUE(f.wait_count(kDropStart, 1)) << f.log();
         f.start_camera_sim("camera2.log");
         ASSERT_TRUE(f.wait_count(kDropEnd, 1)) << f.log();
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_GT(count_of(read_file(f.dir + "/camera2.log"), "\"event\":\"rx\""), 5u);
     }},
    // Each packet gets junk of every length, replies cut short or too long, and a flood.
    {"CameraAnswersGarbage",
     [](Faults &f) {
         f.start_camera([random = std::make_shared<std::mt19937>(11)](const Bytes &) {
             Bytes junk((*random)() % 300);
             for (uint8_t &b : junk) {
                 b = static_cast<uint8_t>((*random)());
             }
             std::vector<Bytes> replies(200, Bytes{0x90, 0x50, 0x01, 0xFF});
             replies.insert(replies.begin(), {junk, {0x90, 0x50}, {}, Bytes(12, 0xFF), Bytes(65000, 0x90)});
             return replies;
         });
     },
     [](Faults &f) {
         EXPECT_TRUE(f.keeps_analysing(30));
         EXPECT_GT(f.camera->packets, 10) << "packets still reach the camera";
     }},
    {"UnsolicitedReplyFromAStraySocket",
     // A camera that never answers, so that only the stray names the destination.
     [](Faults &f) { f.start_camera([](const Bytes &) { return std::vector<Bytes>{}; }); },
     [](Faults &f) {
         // The daemon takes the stray as its camera; once sends there fail it goes back to the camera's own
         // path.
         f.camera->reply_from_a_stray({0x90, 0x41, 0xFF});
         ASSERT_TRUE(f.wait_count(kDropEnd, 1)) << f.log();
         const int seen = f.camera->packets;
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_GT(f.camera->packets, seen);
     }},
    // ------------------------------------------------------ the control socket
    {"ControlDatagramsOfEveryLength", nullptr,
     [](Faults &f) {
         for (size_t length : {0, 1, 2, 3, 127, 128, 129, 255, 256, 4096, 65000}) {
             EXPECT_TRUE(send_datagram(f.dir + "/sin_addr.socket", Bytes(length, 0x01))) << length;
         }
         ASSERT_TRUE(f.control(0x01));
         EXPECT_TRUE(f.wait_count(kInvoke, 3)) << "run obeyed after the junk";
     }},
    {"ControlFlood", nullptr,
     [](Faults &f) {
         const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
         const sockaddr_un to = unix_address(f.dir + "/sin_addr.socket");
         for (int i = 0; i < 100000; ++i) {
             const uint8_t bytes[2] = {0x01, static_cast<uint8_t>(i & 1)};
             sendto(fd, bytes, 2, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to), sizeof to);
         }
         close(fd);
     }},
    // ------------------------------------------------------ the shared segment
    {"SegmentPreExistingWithTheWrongSize",
     [](Faults &f) { ASSERT_GE(shmget(f.key, 64, IPC_CREAT | 0666), 0); },
     [](Faults &f) { EXPECT_EQ(count_of(f.daemon->out(), "fail to shmget"), 1u); }},
    {"SegmentScribbledOver", nullptr,
     [](Faults &f) {
         auto *map = static_cast<uint8_t *>(shmat(shmget(f.key, 0, 0), nullptr, 0));
         ASSERT_NE(map, reinterpret_cast<uint8_t *>(-1));
         std::mt19937 random(5);
         std::generate(map, map + kTrackMapBytes, [&] { return static_cast<uint8_t>(random()); });
         shmdt(map);
     }},
    {"SegmentRemovedMidRun", nullptr,
     [](Faults &f) { ASSERT_EQ(shmctl(shmget(f.key, 0, 0), IPC_RMID, nullptr), 0); }},
    {"LockHeldByAPeerThatWasKilled", nullptr,
     [](Faults &f) {
         reap(lock_holder(f.key));
         const size_t before = count_of(f.daemon->out(), kLockLine);
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_GT(count_of(f.daemon->out(), kLockLine), before + 5) << "every frame gives up after 3 ms";
     }},
    {"LockHeldByAStoppedPeerThatGoesOn", nullptr,
     [](Faults &f) {
         const pid_t holder = lock_holder(f.key);
         EXPECT_TRUE(f.keeps_analysing());
         kill(holder, SIGCONT);
         waitpid(holder, nullptr, 0);
         usleep(200000);
         const size_t held = count_of(f.daemon->out(), kLockLine);
         EXPECT_GT(held, 5u);
         EXPECT_TRUE(f.keeps_analysing());
         EXPECT_EQ(count_of(f.daemon->out(), kLockLine), held) << "the lock is taken again once free";
     }},
    // ------------------------------------------------------ runtime folder and trace file
    // Read-only: the control endpoint cannot bind, so no control until restarted.
    {"RuntimeFolderReadOnly", [](Faults &f) { f.runtime_on_tmpfs("/ro", 64, MS_RDONLY); },
     [](Faults &f) { EXPECT_NE(f.log().find("bind: Read-only file system"), std::string::npos); },
     kNoControl},
    // The control socket's name is gone: control comes back with a restart.
    {"SocketsDeletedWhileRunning", [](Faults &f) { f.start_camera(); },
     [](Faults &f) {
         unlink((f.dir + "/sin_addr.socket").c_str());
         unlink((f.dir + "/featureCamera_addr.socket").c_str());
         ASSERT_TRUE(f.wait_count(kDropStart, 1)) << f.log();
         EXPECT_TRUE(f.keeps_analysing());
     },
     kNoControl},
    {"TraceFileDeleted", [](Faults &f) { f.start_camera(acknowledge, true); },
     [](Faults &f) {
         ASSERT_TRUE(f.wait_count(kDropStart, 1));
         ASSERT_EQ(unlink((f.dir + "/qmt_autoframe.log").c_str()), 0);
         f.camera->hung = false;
         ASSERT_TRUE(f.wait_count(kDropEnd, 1));
         EXPECT_TRUE(f.wait_count("stat ERR", 1)) << "the trace goes on in a new file";
         EXPECT_TRUE(file_exists(f.dir + "/qmt_autoframe.log"));
     }},
    // Not even root writes a folder.
    {"TraceFileUnwritable", [](Faults &f) { mkdir((f.dir + "/qmt_autoframe.log").c_str(), 0755); },
     [](Faults &f) { EXPECT_TRUE(f.wait_count(kDropStart, 1)); }},
    {"TraceFileOnAFullFileSystem",
     [](Faults &f) {
         if (f.runtime_on_tmpfs("/full", 16, 0)) {
             const int fd = open((f.dir + "/filler").c_str(), O_WRONLY | O_CREAT, 0644);
             const std::string block(1024, 'x');
             while (write(fd, block.data(), block.size()) > 0) {
             }
             close(fd);
         }
     },
     [](Faults &f) { EXPECT_TRUE(f.wait_count(kDropStart, 1)); }},
    // ------------------------------------------------------ frame source and model
    {"SourceStalled", [](Faults &f) { f.env["FACEDET_FAULTS"] = "stall=3@60"; },
     [](Faults &f) { EXPECT_TRUE(f.wait_count("get frame time out\n", 1)); }},
    {"GetBufAndPutBufFailing",
     [](Faults &f) { f.env["FACEDET_FAULTS"] = "getbuf_fail_every=4,putbuf_fail_every=3"; },
     [](Faults &f) {
         EXPECT_TRUE(f.wait_count("MI_SYS_ChnOutputPortGetBuf Failed\n", 5));
         EXPECT_TRUE(f.wait_count("Release Frame Failed\n", 5));
     }},
    {"ModelMissing", [](Faults &f) { break_models(f, false); }, framing_runs_without_a_detector},
    {"ModelCorrupt", [](Faults &f) { break_models(f, true); }, framing_runs_without_a_detector},
    // ------------------------------------------------------ SIGINT and SIGTERM in every state
    {"SignalDuringStartUp", nullptr, [](Faults &f) { ASSERT_TRUE(f.wait_count("[qmt_rgn_init 569]", 1)); },
     kOrderlyEndEarly, SIGINT},
    {"SignalDuringInference", nullptr,
     [](Faults &f) {
         ASSERT_TRUE(f.wait_count(std::string(kFrameLine) + "12-", 1, 60s));
         ASSERT_TRUE(f.control(0x01));
         ASSERT_TRUE(f.wait_count(kInvoke, 3));
     },
     kOrderlyEnd},
    {"SignalWhileTheSourceIsStalled", [](Faults &f) { f.env["FACEDET_FAULTS"] = "stall=30@40"; },
     [](Faults &f) { ASSERT_TRUE(f.wait_count("get frame time out", 1, 60s)); }, kOrderlyEndEarly},
    {"SignalWithTheCameraHungAndTheLockHeldByAStoppedPeer",
     [](Faults &f) { f.start_camera(acknowledge, true); },
     [](Faults &f) {
         ASSERT_TRUE(f.wait_count(kDropStart, 1, 60s));
         f.undo.push_back([holder = lock_holder(f.key)] { reap(holder); });
         ASSERT_TRUE(f.wait_count(kLockLine, 3));
     },
     kOrderlyEnd, SIGINT},
};

INSTANTIATE_TEST_SUITE_P(Rows, FaultMatrix, ::testing::ValuesIn(kRows),
                         [](const auto &info) { return std::string(info.param.name); });
