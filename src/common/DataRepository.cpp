#include "common/DataRepository.h"

#include <atomic>

static std::atomic<DataRepositoryProvider> provider{nullptr};

void setDataRepositoryProvider(DataRepositoryProvider p) { provider = p; }
DataRepositoryProvider getDataRepositoryProvider() { return provider; }

const char* const xafTechnical = "technical";
