#pragma once

/// Takes whatever this program wrote into the user's defaults out again.
void removeDefaults();
