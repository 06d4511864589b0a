#pragma once

// The JSON document model: a tree of values, a strict parser and a writer.
#include "minijson/array.h"
#include "minijson/entity.h"
#include "minijson/exceptions.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/parser.h"
#include "minijson/scalars.h"
#include "minijson/writer.h"
