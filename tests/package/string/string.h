#pragma once

struct String {
  char text[32];
};
