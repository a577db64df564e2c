// The replay reads its run's logs with the tools' shared readers, whose names
// it uses as its own.
#ifndef FACEDET_REPLAY_LOGS_H
#define FACEDET_REPLAY_LOGS_H

#include "daemon_log.h"
#include "run_logs.h"

namespace replay {
using namespace logs;
}  // namespace replay

#endif
