#pragma once

using CacheValue = const char*;
