// The reply slot and the decoding of every reply of the camera process.
#include <cstdio>

#include "visca/visca.h"

std::atomic<int32_t> g_receiveData[3] = {{0}, {0}, {0}};
std::atomic<uint8_t> g_receiveFlag{0};

void VISCA_Command_Receive(const uint8_t *packet, uint8_t length) {
    ViscaReply reply;
    if (decode_visca_reply(packet, length, &reply) == 0) {
        return;
    }
    switch (length) {
        case 4:
            printf("\n\n ---------------VISCA_Command_Receive ----------------- case 4 \n");
            break;
        case 5:
            printf("\n\n ---------------VISCA_Command_Receive ----------------- case 5 \n");
            break;
        case 7:
            printf("\n\n ---------------VISCA_Command_Receive ----------------- case 7 zoom \n");
            break;
        case 11:
            printf("\n\n ---------------VISCA_Command_Receive ----------------- case 11 pt \n");
            break;
        default:
            break;
    }
    if (g_receiveFlag.load(std::memory_order_acquire) != 0) {
        return;  // the inquirer has not taken the earlier reply yet
    }
    for (int i = 0; i < reply.count; ++i) {
        g_receiveData[i].store(reply.value[i], std::memory_order_relaxed);
    }
    // After the data: whoever sees the flag sees the values.
    g_receiveFlag.store(1, std::memory_order_release);
}
