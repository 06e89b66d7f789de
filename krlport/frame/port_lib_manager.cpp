#include "krlport/frame/port_lib_manager.h"

int KRLPortLibManager::inited = 0;
unsigned long KRLPortLibManager::debug_level = 0;

void KRLPortLibManager::initialize() { inited = 1; }
