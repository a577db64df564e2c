/*
 * The order in which the daemon's long-lived objects are built before main,
 * stated here rather than left to the order of a source list: first the
 * automatic gamma's offset tables (the frame-loop unit), then the face
 * detector (the detector unit), which loads its model. Destruction at exit
 * runs the other way, so the detector releases its session while everything
 * it was built after still exists.
 *
 * Priorities run before every unprioritised static object of the program;
 * neither object may use one of those while it is built (the detector uses
 * only its own members, the C library and its inference library, whose
 * statics a shared library has built before the program's).
 */
#ifndef FACEDET_CONSTRUCTION_ORDER_H
#define FACEDET_CONSTRUCTION_ORDER_H

#define FACEDET_CONSTRUCT_GAMMA_TABLES __attribute__((init_priority(1001)))
#define FACEDET_CONSTRUCT_FACE_DETECTOR __attribute__((init_priority(1002)))

#endif
