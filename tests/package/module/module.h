#pragma once

using Module = const char*;
