#include "bench/evaluator/Rivals.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
double BitOf(double value, double n)
{
    return static_cast<double>((static_cast<std::int64_t>(value) >> static_cast<int>(n)) & 1);
}

std::string NameOf(std::size_t cell) { return "V" + std::to_string(cell); }
}  // namespace

MuParserCondition::MuParserCondition(const char* text, const CellList& cells) : parser(mupCreate(muBASETYPE_FLOAT))
{
    mupDefineFun2(parser, "bit", &BitOf, 0);
    // It wants numbers that it might write, but doesn't.
    for (std::size_t i = 0; i < cells.size(); ++i)
        mupDefineVar(parser, NameOf(i).c_str(), const_cast<double*>(reinterpret_cast<const double*>(cells[i])));
    mupSetExpr(parser, text);
}

LuaCondition::LuaCondition(const char* text, const CellList& cells) : state(luaL_newstate())
{
    luaL_openlibs(state);
    std::string names;
    std::string casts;
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const std::string name = NameOf(i);
        names += (i > 0 ? ", " : "") + name;
        casts += name + " = ffi.cast('double*', " + name + ") ";
    }
    const std::string chunk = "local ffi, bit = require('ffi'), require('bit') local " + names + " = ... " + casts +
                              "return function() " + text + " end";
    if (luaL_loadstring(state, chunk.c_str()) != 0)
    {
        std::fprintf(stderr, "%s\n", lua_tostring(state, -1));
        std::exit(1);
    }
    for (const auto* cell : cells) lua_pushlightuserdata(state, const_cast<std::atomic<double>*>(cell));
    lua_call(state, static_cast<int>(cells.size()), 1);
}
