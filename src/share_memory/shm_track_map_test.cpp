// The module's exercise: a writer that a peer can watch.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "share_memory/share_memory.h"

void shm_track_map_test(int rounds) {
    shm_track_map_open();
    float record[kTrackDataBytes / sizeof(float)];
    for (int count = 0; rounds <= 0 || count < rounds; ++count) {
        memset(record, 0, sizeof record);
        for (int i = 0; i < 8; ++i) {
            record[i] = static_cast<float>(count);
        }
        const int32_t one = 1;
        memcpy(&record[27], &one, sizeof one);  // word 27 is an integer flag
        if (shm_track_map_write(record) == 1) {
            printf("send data ok!!!\n");
        } else {
            printf("send data failed!!!\n");
        }
        printf("count:%d\n", count);
        fflush(stdout);
        if (rounds <= 0 || count + 1 < rounds) {
            sleep(1);
        }
    }
}
