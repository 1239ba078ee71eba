/* The tech border header compiled as plain C: the sizes and offsets a C
 * module sees, handed to the C++ test that compares them with its own. */
#include "veltech/veltech_abi.h"

size_t VelAbiLayoutSeenFromC(int index);

size_t VelAbiLayoutSeenFromC(int index) {
  const size_t layout[] = {
      sizeof(ZORTechControl),
      offsetof(ZORTechControl, enumCount),
      offsetof(ZORTechControl, enumNames),
      offsetof(ZORTechControl, unit),
      sizeof(ZORChannelNode),
      offsetof(ZORChannelNode, role),
      offsetof(ZORChannelNode, next),
      sizeof(ZORProcessHook),
      sizeof(ZORTechProcessTable),
      offsetof(ZORTechProcessTable, GetBlockSize),
      offsetof(ZORTechProcessTable, CopyState),
      offsetof(ZORTechProcessTable, Process),
  };
  return index >= 0 && index < (int)(sizeof(layout) / sizeof(layout[0])) ? layout[index] : 0;
}
