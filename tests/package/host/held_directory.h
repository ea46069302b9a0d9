#pragma once

struct HeldDirectory {
  const char* path;
};
