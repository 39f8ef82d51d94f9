/*
 * Plain structures of the device features: the form in which device code and applications hold their data.
 * C99 and C++; values only, no pointers, nothing to free.
 *
 * Unless a field says otherwise: lengths are metres, angles radians, confidences from 0 (none) to 1
 * (certain), coordinates those of the frame in which the device reports. A flag is true for "yes". Arrays
 * have as many elements as shown; a conversion that has fewer leaves the rest of them as they were.
 *
 * The meaning of the numbers of an enumeration belongs to the device that sends them.
 */
#ifndef VQ_TYPES_H
#define VQ_TYPES_H

#include <stdbool.h>
#include <stdint.h>

/*
 * A 32-bit number whose values have no names here. In C++ a type of its own, so that two kinds are never
 * mixed up; any number is a value of it.
 */
#ifdef __cplusplus
#define VQ_NUMBERED_ENUM(name) enum name : int32_t {}
#define VQ_ENUM_32_BITS : int32_t
#else
#define VQ_NUMBERED_ENUM(name) typedef int32_t name
#define VQ_ENUM_32_BITS
#endif

/* Names a query in flight or an object of a device; 0 is never one. */
typedef uint64_t VQHandle;

/* ---- Geometry ---- */

/* A point, a direction or an extent. */
typedef struct VQVec3f {
    float x;
    float y;
    float z;
} VQVec3f;

/* A rotation as a unit quaternion; w is its real part and comes last. */
typedef struct VQQuaternionf {
    float x;
    float y;
    float z;
    float w;
} VQQuaternionf;

/* A rectangle, in pixels or in parts of the whole as its user says. */
typedef struct VQRectf {
    float x; /* left edge */
    float y; /* lower edge */
    float w; /* width */
    float h; /* height */
} VQRectf;

/* A pose. */
typedef struct VQTransform {
    VQVec3f position;
    VQQuaternionf rotation;
} VQTransform;

/* A 4 by 4 matrix. */
typedef struct VQMat4f {
    float matrix_colmajor[16]; /* column by column: element i is column i / 4, row i % 4 */
} VQMat4f;

/* Identifies a coordinate frame for all time: 128 bits. */
typedef struct VQCoordinateFrameUID {
    uint64_t data[2]; /* both 0: no frame */
} VQCoordinateFrameUID;

/* ---- Hand tracking ---- */

/* 0 to 7 are the poses that the arrays below count by; 8 is none of them. */
VQ_NUMBERED_ENUM(VQHandTrackingKeyPose);

/* One hand. */
typedef struct VQHandTrackingHandState {
    VQHandTrackingKeyPose keypose; /* the pose that the hand is in */
    float hand_confidence;         /* that there is a hand at all */
    float keypose_confidence[8];   /* by pose: that the hand is in it */
    bool keypoints_mask[21];       /* by key point: it is tracked */
} VQHandTrackingHandState;

/* Both hands. */
typedef struct VQHandTrackingData {
    VQHandTrackingHandState left_hand;
    VQHandTrackingHandState right_hand;
} VQHandTrackingData;

/* What hand tracking looks for. */
typedef struct VQHandTrackingConfiguration {
    bool enabled;            /* hand tracking as a whole */
    bool keypose_enabled[8]; /* by pose: look for it */
} VQHandTrackingConfiguration;

/* ---- Input controllers ---- */

/* Numbers 0 to 7, each. */
VQ_NUMBERED_ENUM(VQInputControllerTouchpadGestureType);
VQ_NUMBERED_ENUM(VQInputControllerTouchpadGestureDirection);
VQ_NUMBERED_ENUM(VQInputControllerTouchpadGestureState);
VQ_NUMBERED_ENUM(VQInputControllerDof);
VQ_NUMBERED_ENUM(VQControllerStreamType);
VQ_NUMBERED_ENUM(VQControllerAccuracy);

/* A gesture on the touch pad; lengths in units of the pad, which reaches from -1 to 1. */
typedef struct VQInputControllerTouchpadGesture {
    VQInputControllerTouchpadGestureType type;
    VQInputControllerTouchpadGestureDirection direction;
    float speed;      /* pad units a second */
    float distance;   /* pad units from where it began */
    float finger_gap; /* pad units between two fingers */
    float radius;     /* pad units, of a circular gesture */
    float angle;      /* radians, of a circular gesture */
} VQInputControllerTouchpadGesture;

/* One controller, pose included. */
typedef struct VQInputControllerState {
    VQVec3f position;
    VQQuaternionf orientation;
    uint32_t controller_id; /* which controller, counted by the device */
    VQVec3f
        touch_pos_and_force[2]; /* by finger: x and y the place on the pad, -1 to 1; z the force, 0 to 1 */
    float trigger_normalized;   /* 0 released, 1 fully pulled */
    uint8_t button_state_move;  /* buttons: 0 is up, anything else down */
    uint8_t button_state_app;
    uint8_t button_state_bumper;
    uint8_t button_state_home_tap; /* tapped since the last state */
    bool is_touch_active[2]; /* by finger: touches the pad; derived from the force when a state is sent */
    bool is_connected;
    VQInputControllerTouchpadGesture touchpad_gesture; /* the latest one */
    VQInputControllerTouchpadGestureState touchpad_gesture_state;
    VQInputControllerDof dof; /* which degrees of freedom are tracked */
    uint8_t hardware_index;   /* which port of the device */
} VQInputControllerState;

/* One source of a controller's pose. */
typedef struct VQControllerStream {
    VQControllerStreamType type;
    bool is_active; /* delivers poses at present */
    VQControllerAccuracy accuracy;
    VQVec3f position;
    VQQuaternionf rotation;
} VQControllerStream;

/* One controller with every source of its pose. */
typedef struct VQControllerState {
    uint32_t controller_id; /* which controller, counted by the device */
    bool is_active;
    VQControllerStream streams[3];
} VQControllerState;

/* All controllers. */
typedef struct VQControllerSystemState {
    VQControllerState controllers[2];
} VQControllerSystemState;

/* ---- Image tracking ---- */

/* Numbers 0 to 7. */
VQ_NUMBERED_ENUM(VQImageTrackerTargetStatus);

/* What is known of one target. */
typedef struct VQImageTrackerTargetResult {
    VQImageTrackerTargetStatus status;
} VQImageTrackerTargetResult;

/* The tracker as a whole. */
typedef struct VQImageTrackerSettings {
    bool enabled;
    uint32_t target_limit; /* most targets tracked at a time */
} VQImageTrackerSettings;

/* One target. */
typedef struct VQImageTrackerTargetSettings {
    bool enabled;
    float longest_side; /* metres, of the printed image */
} VQImageTrackerTargetSettings;

/* ---- Ray casts, meshes, planes ---- */

/* Numbers 0 to 7. */
VQ_NUMBERED_ENUM(VQRaycastResultState);

/* A ray to cast into the surroundings. */
typedef struct VQRaycastQuery {
    VQVec3f origin;
    VQVec3f direction;  /* of any length but 0 */
    float max_distance; /* metres */
} VQRaycastQuery;

/* Where a ray ended. */
typedef struct VQRaycastResult {
    VQRaycastResultState state;
    VQVec3f point;  /* where it hit */
    VQVec3f normal; /* unit vector, of the surface there */
    float distance; /* metres from the ray's origin */
} VQRaycastResult;

/* A box along the axes. */
typedef struct VQMeshingExtents {
    VQVec3f minimum;
    VQVec3f maximum;
} VQMeshingExtents;

/* What a mesh is to hold. */
typedef struct VQMeshingSettings {
    uint32_t detail;      /* level of detail; more is finer */
    bool with_normals;    /* a normal for each vertex */
    bool with_confidence; /* a confidence for each vertex */
} VQMeshingSettings;

/* Where to look for planes. */
typedef struct VQPlanesQuery {
    VQVec3f center;
    VQVec3f extents; /* metres, whole lengths of the box's sides */
    uint32_t max_results;
} VQPlanesQuery;

/* ---- Graphics ---- */

/* Format of a render surface. */
typedef enum VQSurfaceFormat VQ_ENUM_32_BITS {
    VQSurfaceFormat_0 = 0,
    VQSurfaceFormat_1 = 1,
    VQSurfaceFormat_2 = 2,
    VQSurfaceFormat_3 = 3,
    VQSurfaceFormat_4 = 4,
    VQSurfaceFormat_5 = 5,
    VQSurfaceFormat_6 = 6,
    VQSurfaceFormat_7 = 7
} VQSurfaceFormat;

/* What one virtual camera sees. */
typedef struct VQGraphicsClipExtentsInfo {
    VQTransform transform; /* of the camera */
    VQMat4f projection;
} VQGraphicsClipExtentsInfo;

/* One camera for each eye. */
typedef struct VQGraphicsClipExtentsInfoArray {
    uint32_t num_virtual_cameras; /* as the sender counts, which may be more than there are elements here */
    VQGraphicsClipExtentsInfo extents[2];
} VQGraphicsClipExtentsInfoArray;

/* One camera for each eye, and one that covers both. */
typedef struct VQGraphicsClipExtentsInfoArrayEx {
    uint32_t num_virtual_cameras; /* elements in use; those behind are not sent */
    VQGraphicsClipExtentsInfo extents[3];
} VQGraphicsClipExtentsInfoArrayEx;

/* How to render a frame. */
typedef struct VQGraphicsFrameParamsEx {
    float near_clip;     /* metres */
    float far_clip;      /* metres */
    float surface_scale; /* part of the surface's full resolution that is rendered, 0 to 1 */
} VQGraphicsFrameParamsEx;

/* ---- Keyboard ---- */

/* Numbers 0 to 255. */
VQ_NUMBERED_ENUM(VQKeyCode);

/* A typed character and the key behind it. */
typedef struct KeyboardData {
    uint32_t character; /* Unicode code point; 0 for a key without one */
    VQKeyCode key;
    bool is_down;       /* true when the key went down, false when it went up */
    uint32_t modifiers; /* a bit for each modifier key held */
} KeyboardData;

#undef VQ_NUMBERED_ENUM
#undef VQ_ENUM_32_BITS

#endif
