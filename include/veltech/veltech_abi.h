/*
 * veltech_abi.h: the border between velapo and a tech module.
 *
 * A tech module is a plain 64-bit shared library (veltech64.dll on Windows,
 * libveltech.so on Linux) that lies beside the host module. It exports three functions and makes process
 * objects. A process object is anything whose first word points to a table
 * of 19 function pointers in the order of ZORTechProcessTable; every
 * operation takes the object as its first argument. A C module fills such a
 * table by hand; a C++ module may instead declare a class whose virtual
 * operations are exactly these 19, in this order, with no virtual destructor
 * and no overloads among them, since the common 64-bit compilers then lay out
 * its virtual table as this one.
 *
 * Plain C (C99 and later, and C++). 64-bit only: velapo builds, tests and
 * loads no 32-bit modules (the Windows audio engine is a 64-bit process on
 * 64-bit Windows), and this header refuses a 32-bit build. The layouts are
 * pinned by the static assertions at the end of this file.
 * docs/tech-modules.md walks through writing a module.
 */
#ifndef VELTECH_ABI_H
#define VELTECH_ABI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if UINTPTR_MAX != 0xFFFFFFFFFFFFFFFFu
#error "veltech modules are 64-bit only: velapo builds and loads no 32-bit modules"
#endif

/* Calling conventions of the exports and callbacks, and of the operations of
 * a process. Every 64-bit platform has one convention, so both are empty;
 * they mark where a convention would go. */
#define VELTECH_CALL
#define VELTECH_METHOD

/* How a module marks its three exports. */
#if defined(_WIN32)
#define VELTECH_EXPORT __declspec(dllexport)
#else
#define VELTECH_EXPORT __attribute__((visibility("default")))
#endif

/* Truth values crossing the border are one byte; the host reads only the low
 * eight bits of a result, so a C++ bool, a C _Bool or a uint8_t all fit. */
typedef uint8_t ZORTechBool;

/* Control units. The host knows only VELTECH_UNIT_HUNDREDTHS: values of such
 * a control travel as integers a hundred times the real value (-350 for
 * -3.5 dB). Every other unit means values are taken as they are. */
#define VELTECH_UNIT_PLAIN 0
#define VELTECH_UNIT_HUNDREDTHS 2

/* One control of a process, 48 bytes on 64-bit builds. The module keeps its
 * records, and the strings they point to, valid while the process lives. */
typedef struct ZORTechControl {
  const char* name;          /* 0: "Control-Name", addressed as "InstanceId:Control-Name" */
  int32_t first;             /* 8: the module's own meaning; veltech: lowest value */
  int32_t second;            /* 12: the module's own meaning; veltech: highest value */
  int32_t defaultValue;      /* 16: not read by the host; veltech: the value at start */
  uint32_t reserved0;        /* 20: not read by the host */
  uint32_t enumCount;        /* 24: count of value names; 0 for a numeric control */
  uint32_t reserved1;        /* 28: not read by the host */
  const char* const* enumNames; /* 32: enumCount names, value i named enumNames[i]; or null */
  int32_t unit;              /* 40: VELTECH_UNIT_HUNDREDTHS or another unit */
  uint32_t scaleWord;        /* 44: not read by the host (a raw descriptor word) */
} ZORTechControl;

/* One channel handed to Process: 24 bytes on 64-bit builds. The host links
 * one node per channel, in channel order, for each call. */
typedef struct ZORChannelNode {
  float* samples;               /* 0: the channel's planar samples, `frames` of them */
  uint32_t role;                /* 8: channel role; 7 is the capture side channel */
  uint32_t reserved;            /* 12: not read */
  struct ZORChannelNode* next;  /* 16: the next channel, or null after the last */
} ZORChannelNode;

/* The side-channel hook a process may call during Process: a single node of
 * role 7 hands the host a mono block, which the host may read and replace. */
typedef void(VELTECH_CALL* ZORProcessHookCallback)(ZORChannelNode* nodes, uint32_t frames,
                                                   void* context);
typedef struct ZORProcessHook {
  ZORProcessHookCallback callback;  /* 0 */
  void* context;                    /* 8: pass back unchanged */
} ZORProcessHook;

typedef struct ZORTechProcess ZORTechProcess;

/* Placeholder for the slots the host never calls. They must exist; what
 * they point to is the module's business. */
typedef void(VELTECH_METHOD* ZORTechUnusedSlot)(ZORTechProcess* self);

/* The operations of a process, in slot order. Threads: Process runs on the
 * audio thread; every other operation on the host's worker or configuration
 * thread, possibly while Process runs for the same process on the audio
 * thread. A module must allow this without blocking the audio thread.
 * CopyState is the exception: it runs on the audio thread, between Process
 * calls of both processes. */
typedef struct ZORTechProcessTable {
  ZORTechUnusedSlot unused0; /* slots 0 to 3 */
  ZORTechUnusedSlot unused1;
  ZORTechUnusedSlot unused2;
  ZORTechUnusedSlot unused3;
  /* 4: frames per Process call the process needs, or 0 for any count.
   * Asked after each successful Init. */
  uint32_t(VELTECH_METHOD* GetBlockSize)(ZORTechProcess* self);
  /* 5: the process's own delay in frames, beyond the host's block adaption. */
  uint32_t(VELTECH_METHOD* GetLatency)(ZORTechProcess* self);
  ZORTechUnusedSlot unused6; /* 6 */
  /* 7: the control table; stores the address of the first record and
   * returns the count. */
  int32_t(VELTECH_METHOD* GetControls)(ZORTechProcess* self, const ZORTechControl** first);
  /* 8 to 11: set or read a control by name; false for an unknown control
   * or a value the process does not take. A string handed out stays valid
   * until the next control call on this process. */
  ZORTechBool(VELTECH_METHOD* SetControlLong)(ZORTechProcess* self, const char* name, int32_t value);
  ZORTechBool(VELTECH_METHOD* SetControlString)(ZORTechProcess* self, const char* name,
                                                const char* value);
  ZORTechBool(VELTECH_METHOD* GetControlLong)(ZORTechProcess* self, const char* name,
                                              int32_t* value);
  ZORTechBool(VELTECH_METHOD* GetControlString)(ZORTechProcess* self, const char* name,
                                                const char** value);
  /* 12, 13: handed on unchanged from the host's controller. The host passes
   * its "reset" flag as the code of the second when it delivers a full set
   * of values. */
  int32_t(VELTECH_METHOD* PassThroughFirst)(ZORTechProcess* self, uint32_t code, void* data,
                                            uint32_t size);
  int32_t(VELTECH_METHOD* PassThroughSecond)(ZORTechProcess* self, uint32_t code, void* data,
                                             uint32_t size);
  ZORTechUnusedSlot unused14; /* 14, 15 */
  ZORTechUnusedSlot unused15;
  /* 16: take over the running state of `other` (filter memories, smoothed
   * parameters) so that this process continues where `other` stands. False
   * when `other` is of another kind or its state does not fit. */
  ZORTechBool(VELTECH_METHOD* CopyState)(ZORTechProcess* self, ZORTechProcess* other);
  /* 17: prepare for `channels` channels at `sampleRate`; may be called again. */
  ZORTechBool(VELTECH_METHOD* Init)(ZORTechProcess* self, uint32_t channels, uint32_t sampleRate);
  /* 18: process `frames` frames. The host passes the same list as `in` and
   * `out` (in place); the list may have more or fewer nodes than Init's
   * channels. `hook` is null unless the host listens to a side channel. */
  void(VELTECH_METHOD* Process)(ZORTechProcess* self, ZORChannelNode* in, ZORChannelNode* out,
                                uint32_t frames, ZORProcessHook* hook);
} ZORTechProcessTable;

/* A process object as the host sees it: its first word. */
struct ZORTechProcess {
  const ZORTechProcessTable* table;
};

/* The exports. ZORTechEnumProcesses calls `callback` once per tech id the
 * module offers. ZORTechCreateProcess makes the process of `techId` for the
 * chain position `instanceId` and stores it in `*process`; a non-zero result
 * means success. ZORTechDestroyProcess ends a process made by this module.
 * The host calls them from its worker or configuration thread. */
typedef void(VELTECH_CALL* ZORTechEnumCallback)(const char* techId, void* context);
typedef void(VELTECH_CALL* ZORTechEnumProcessesFn)(ZORTechEnumCallback callback, void* context);
typedef ZORTechBool(VELTECH_CALL* ZORTechCreateProcessFn)(const char* techId,
                                                          ZORTechProcess** process,
                                                          const char* instanceId);
typedef void(VELTECH_CALL* ZORTechDestroyProcessFn)(ZORTechProcess* process);

#define VELTECH_ENUM_PROCESSES_EXPORT "ZORTechEnumProcesses"
#define VELTECH_CREATE_PROCESS_EXPORT "ZORTechCreateProcess"
#define VELTECH_DESTROY_PROCESS_EXPORT "ZORTechDestroyProcess"

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback callback, void* context);
VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char* techId,
                                                             ZORTechProcess** process,
                                                             const char* instanceId);
VELTECH_EXPORT void VELTECH_CALL ZORTechDestroyProcess(ZORTechProcess* process);

/* The 64-bit layout, byte by byte. */
#if defined(__cplusplus)
#define VELTECH_STATIC_ASSERT(condition, message) static_assert(condition, message)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define VELTECH_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#else
/* C99: an array of negative size stops the build. */
#define VELTECH_JOIN_(a, b) a##b
#define VELTECH_JOIN(a, b) VELTECH_JOIN_(a, b)
#define VELTECH_STATIC_ASSERT(condition, message) \
  typedef char VELTECH_JOIN(veltech_layout_check_, __LINE__)[(condition) ? 1 : -1]
#endif

VELTECH_STATIC_ASSERT(sizeof(ZORTechControl) == 48, "control record is 48 bytes");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, name) == 0, "control name at 0");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, first) == 8, "control first at 8");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, second) == 12, "control second at 12");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, defaultValue) == 16, "control default at 16");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, reserved0) == 20, "control reserved at 20");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, enumCount) == 24, "control enum count at 24");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, reserved1) == 28, "control reserved at 28");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, enumNames) == 32, "control enum names at 32");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, unit) == 40, "control unit at 40");
VELTECH_STATIC_ASSERT(offsetof(ZORTechControl, scaleWord) == 44, "control scale word at 44");

VELTECH_STATIC_ASSERT(sizeof(ZORChannelNode) == 24, "channel node is 24 bytes");
VELTECH_STATIC_ASSERT(offsetof(ZORChannelNode, samples) == 0, "node samples at 0");
VELTECH_STATIC_ASSERT(offsetof(ZORChannelNode, role) == 8, "node role at 8");
VELTECH_STATIC_ASSERT(offsetof(ZORChannelNode, reserved) == 12, "node reserved at 12");
VELTECH_STATIC_ASSERT(offsetof(ZORChannelNode, next) == 16, "node next at 16");

VELTECH_STATIC_ASSERT(sizeof(ZORProcessHook) == 16, "hook record is 16 bytes");
VELTECH_STATIC_ASSERT(offsetof(ZORProcessHook, callback) == 0, "hook callback at 0");
VELTECH_STATIC_ASSERT(offsetof(ZORProcessHook, context) == 8, "hook context at 8");

VELTECH_STATIC_ASSERT(sizeof(struct ZORTechProcess) == 8, "process object starts with its table");
VELTECH_STATIC_ASSERT(sizeof(ZORTechProcessTable) == 19 * 8, "process table has 19 slots");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, unused0) == 0 * 8, "slot 0");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, unused3) == 3 * 8, "slot 3");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, GetBlockSize) == 4 * 8, "slot 4");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, GetLatency) == 5 * 8, "slot 5");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, unused6) == 6 * 8, "slot 6");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, GetControls) == 7 * 8, "slot 7");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, SetControlLong) == 8 * 8, "slot 8");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, SetControlString) == 9 * 8, "slot 9");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, GetControlLong) == 10 * 8, "slot 10");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, GetControlString) == 11 * 8, "slot 11");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, PassThroughFirst) == 12 * 8, "slot 12");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, PassThroughSecond) == 13 * 8, "slot 13");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, unused14) == 14 * 8, "slot 14");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, unused15) == 15 * 8, "slot 15");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, CopyState) == 16 * 8, "slot 16");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, Init) == 17 * 8, "slot 17");
VELTECH_STATIC_ASSERT(offsetof(ZORTechProcessTable, Process) == 18 * 8, "slot 18");
VELTECH_STATIC_ASSERT(sizeof(ZORTechBool) == 1, "truth values are one byte");

#ifdef __cplusplus
}
#endif

#endif /* VELTECH_ABI_H */
