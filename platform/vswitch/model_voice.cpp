#include "model.h"

void serveVoice() {}
void resetVoice() {}
