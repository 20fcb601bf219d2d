#include "installer/ModuleRecord.h"

ModuleRecord moduleRecord;
