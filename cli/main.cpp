// Placeholder until the tool lands.
#include "tz3effect.h"
int main() { return Tz3LiveBlocks() == 0 ? 0 : 1; }
