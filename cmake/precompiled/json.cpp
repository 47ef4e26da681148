// The instances of the JSON library's templates that json.h declares.

#define TARVIK_JSON_INSTANCE template
#include "json.h"
