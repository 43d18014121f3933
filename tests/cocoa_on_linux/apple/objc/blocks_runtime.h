// What GNUstep's headers ask for is the blocks runtime under its usual name.
#pragma once
#include <Block.h>
