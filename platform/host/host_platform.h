/*
 * Test hooks of the host platform (C++ only). Unit tests use them to set the
 * platform up without the environment and to look inside; the daemon never
 * includes this header.
 */
#ifndef FACEDET_HOST_PLATFORM_H
#define FACEDET_HOST_PLATFORM_H

#include "host_config.h"
#include "mi_rgn.h"
#include "vpe_pipeline.h"

namespace host {

// The next MI_SYS_Init uses cfg instead of the environment (once).
void use_config_for_next_init(const Config &cfg);

// A copy of the palette given to the last successful MI_RGN_Init; false when
// there is none (never initialised, or MI_RGN_DeInit since).
bool rgn_palette(MI_RGN_PaletteTable_t *out);

}  // namespace host

#endif
