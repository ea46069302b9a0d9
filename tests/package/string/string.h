#pragma once

using String = char[32];
