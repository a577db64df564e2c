#include "net_communication/net_communication.h"

std::atomic<uint8_t> MsgBuf[2] = {{1}, {0}};
