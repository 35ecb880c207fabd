// The tree of an expression: what the parser makes of a text and the compiler reads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a node of the tree does with its operands.
enum class KTExpressionOp : std::uint8_t
{
    number,  // a number, or TRUE and FALSE as 1 and 0
    name,    // the variable whose name stands in `names`
    plus,    // the operand as a number
    negate,
    chain,  // operands tied by add ... modulo, from left to right
    add,
    subtract,
    multiply,
    divide,
    modulo,
    power,
    minimum,
    maximum,
    less,  // two operands
    lessEqual,
    greater,
    greaterEqual,
    equal,
    notEqual,
    bit,
    negation,     // NOT
    conjunction,  // AND, two or more operands
    disjunction,  // OR
    choice,       // IF
    absolute,     // one operand, up to the end
    squareRoot,
    exponential,
    naturalLogarithm,
    decimalLogarithm,
    sine,
    cosine,
    tangent,
    floor,
    ceiling,
    round,
    truncate,
    sign
};

/// An expression as a tree in one vector. Operands stand before their node, so the root is the last.
///
/// Memory:  a plain value.
struct KTExpression
{
    static constexpr int none = -1;

    struct Node
    {
        KTExpressionOp op = KTExpressionOp::number;
        KTExpressionOp joint = KTExpressionOp::number;  // in a chain: what ties it to the operands before it
        bool logical = false;
        int first = none;     // operand
        int next = none;      // operand of the same node
        int name = none;      // index into `names`
        double number = 0.0;  // infinite when the text says more than a double holds
    };

    std::vector<Node> nodes;
    std::vector<std::wstring> names;  // each once, as between the brackets
    bool onlyName = false;            // one name in brackets and nothing else

    [[nodiscard]] const Node& Root() const { return nodes.back(); }
    [[nodiscard]] const Node& At(int index) const { return nodes[static_cast<std::size_t>(index)]; }
};
