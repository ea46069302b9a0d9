#pragma once

struct Module {
  const char* path;
};
