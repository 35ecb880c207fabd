// What a user would take instead: muParser and LuaJIT, each through its C interface.
#pragma once

#include <muParserDLL.h>
#include <lua.hpp>

#include "bench/evaluator/Conditions.h"

/// An expression of muParser over the variables V0, V1 and so on.
class MuParserCondition
{
public:
    MuParserCondition(const char* text, const CellList& cells);
    MuParserCondition(const MuParserCondition&) = delete;
    MuParserCondition& operator=(const MuParserCondition&) = delete;
    ~MuParserCondition() { mupRelease(parser); }

    double Evaluate() { return mupEval(parser); }

private:
    muParserHandle_t parser;
};

/// The body of a Lua function over the pointers V0, V1 and so on, compiled by LuaJIT.
class LuaCondition
{
public:
    LuaCondition(const char* text, const CellList& cells);
    LuaCondition(const LuaCondition&) = delete;
    LuaCondition& operator=(const LuaCondition&) = delete;
    ~LuaCondition() { lua_close(state); }

    double Evaluate()
    {
        lua_pushvalue(state, 1);
        lua_call(state, 0, 1);
        const bool outcome = lua_toboolean(state, -1) != 0;
        lua_settop(state, 1);
        return outcome ? 1.0 : 0.0;
    }

private:
    lua_State* state;  // the function lies at the bottom of its stack
};
