/* The minimal tech module of docs/tech-modules.md, in plain C: one process,
 * "silence", with no controls. Built and run by the tech tests so that the
 * page's example stays true. */
#include <stdlib.h>
#include <string.h>
#include "veltech/veltech_abi.h"

typedef struct Silence { ZORTechProcess base; } Silence;

static void VELTECH_METHOD Unused(ZORTechProcess* self) { (void)self; }
static uint32_t VELTECH_METHOD Zero(ZORTechProcess* self) { (void)self; return 0; }
static int32_t VELTECH_METHOD NoControls(ZORTechProcess* self, const ZORTechControl** first) {
  (void)self; *first = NULL; return 0;
}
static ZORTechBool VELTECH_METHOD NoLong(ZORTechProcess* s, const char* n, int32_t v) {
  (void)s; (void)n; (void)v; return 0;
}
static ZORTechBool VELTECH_METHOD NoText(ZORTechProcess* s, const char* n, const char* v) {
  (void)s; (void)n; (void)v; return 0;
}
static ZORTechBool VELTECH_METHOD NoGetLong(ZORTechProcess* s, const char* n, int32_t* v) {
  (void)s; (void)n; (void)v; return 0;
}
static ZORTechBool VELTECH_METHOD NoGetText(ZORTechProcess* s, const char* n, const char** v) {
  (void)s; (void)n; (void)v; return 0;
}
static int32_t VELTECH_METHOD Pass(ZORTechProcess* s, uint32_t c, void* d, uint32_t z) {
  (void)s; (void)c; (void)d; (void)z; return 0;
}
static ZORTechBool VELTECH_METHOD Copy(ZORTechProcess* s, ZORTechProcess* o) {
  return o != NULL && o->table == s->table;
}
static ZORTechBool VELTECH_METHOD Init(ZORTechProcess* s, uint32_t ch, uint32_t rate) {
  (void)s; (void)ch; return rate > 0;
}
static void VELTECH_METHOD Run(ZORTechProcess* s, ZORChannelNode* in, ZORChannelNode* out,
                               uint32_t frames, ZORProcessHook* hook) {
  (void)s; (void)in; (void)hook;
  for (ZORChannelNode* node = out; node != NULL; node = node->next)
    memset(node->samples, 0, frames * sizeof(float));
}

static const ZORTechProcessTable kTable = {
    Unused, Unused, Unused, Unused, Zero, Zero, Unused, NoControls, NoLong, NoText,
    NoGetLong, NoGetText, Pass, Pass, Unused, Unused, Copy, Init, Run};

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback cb, void* ctx) {
  cb("silence", ctx);
}
VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char* id, ZORTechProcess** p,
                                                             const char* instance) {
  (void)instance;
  if (strcmp(id, "silence") != 0) return 0;
  Silence* made = malloc(sizeof *made);
  if (made == NULL) return 0;
  made->base.table = &kTable;
  *p = &made->base;
  return 1;
}
VELTECH_EXPORT void VELTECH_CALL ZORTechDestroyProcess(ZORTechProcess* p) { free(p); }
