#pragma once

struct CacheValue {
  const char* url;
};
