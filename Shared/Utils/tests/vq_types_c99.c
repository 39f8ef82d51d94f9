/* The header of plain structures, read as C: a C++ test compares what both languages make of it. */
#include "Utils/vq_types.h"

#include <stddef.h>

extern size_t const vqTypesLayoutInC[6];
size_t const vqTypesLayoutInC[6] = {
    sizeof(VQHandTrackingHandState), sizeof(VQInputControllerState), sizeof(VQControllerSystemState),
    sizeof(VQSurfaceFormat),         sizeof(KeyboardData),           offsetof(VQInputControllerState, dof)};
