#include "framework/chip/ChipModel.h"

// A program that includes the chip model where earlier releases had it, and links the plug-in
// alone.
int main() {
  BfnChip::ChipModel chip(2);
  return chip.rowCount() == 0 ? 0 : 1;
}
