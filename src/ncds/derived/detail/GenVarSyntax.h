#ifndef NCDS_DERIVED_DETAIL_GENVARSYNTAX_H
#define NCDS_DERIVED_DETAIL_GENVARSYNTAX_H

// The text of generated variables, read in one place: the reference tokens of recipes ("v3",
// "vid12") and the expression grammar shared by the formulas users write and the recipes
// stored from them.
//
// Grammar, loosest binding first; operators of one line associate to the left, except '^':
//   ||    &&    == !=    < <= > >=    + -    * /    unary - +    ^ (right)
// Operands are numbers ("2", "0.5", ".5", "1e-3"), references and calls `name(arg, ...)` of
// the functions in `kGenVarFunctions` (names ignore case). In a formula a reference is a name:
// an identifier (a letter, '_', '$' or a byte above 127, then also digits and '.') or any text
// in double quotes or backticks, the quote doubled to stand for itself. In a recipe it is a
// recipe token. Parentheses, calls, signs and powers may nest `kMaxGenVarNesting` deep, so
// every walk of a tree stays shallow.
//
// Refusals throw `NCError` with one translated sentence that names the 1-based character
// position in the text.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ncds::detail {

// A reference token of a recipe: "v" and digits (positional: the N-th ID of a list the caller
// holds) or "vid" and digits (the variable with that unique ID; 0 stands for no variable).
struct RecipeToken {
  std::size_t begin = 0;  // byte offsets of the token in the text
  std::size_t end = 0;
  bool idForm = false;
  unsigned long number = 0;  // N, or the unique ID; saturates rather than wraps
};

// The token that starts at byte `at`, or nothing. A "v" starts a token only at the start or
// after a character that is not a letter (C `isalpha`); after "vid" the digits must follow
// the "d", otherwise after the "v". Letter case matters.
std::optional<RecipeToken> ScanRecipeToken(std::string_view text, std::size_t at);

// Calls `visit(token)` for each token of `text`, in order.
template <class Visit>
void ForEachRecipeToken(std::string_view text, Visit visit) {
  for (std::size_t i = 0; i < text.size();) {
    if (const auto token = ScanRecipeToken(text, i)) {
      visit(*token);
      i = token->end;
    } else {
      ++i;
    }
  }
}

// The 1-based character position of byte `offset` of UTF-8 `text`.
int CharacterPosition(std::string_view text, std::size_t offset);

// `name` as a formula writes it: as it is when it reads back as the same name, otherwise in
// double quotes with inner double quotes doubled.
std::string QuoteGenVarName(std::string_view name);

constexpr int kMaxGenVarNesting = 64;

enum class GenVarFunction {
  kLog,  // natural logarithm
  kLog10,
  kExp,
  kSqrt,
  kAbs,
  kMin,  // one or more arguments
  kMax,
  kPow,
  kIf,  // if(condition, then, else); a condition other than 0 holds
  // Series functions: their first argument is a column, their second a number written out.
  kLag,
  kDelta,
  kShift,
  kEWMA,
  kDiff1,
  kDiff2,
  kCuSum,
};

struct GenVarFunctionInfo {
  const char* name;  // as recipes write it
  GenVarFunction function;
  int arguments;  // -1: one or more
};

// Every function a formula may call; "ln" is another name of "log".
extern const std::vector<GenVarFunctionInfo> kGenVarFunctions;

bool IsSeriesFunction(GenVarFunction function);

enum class GenVarOperator { kOr, kAnd, kEq, kNe, kLt, kLe, kGt, kGe, kAdd, kSub, kMul, kDiv };

// A node of the tree a text parses into. The children own their subtrees.
struct GenVarNode {
  enum class Kind {
    kNumber,     // `value`
    kReference,  // a formula's `name`, or a recipe's `token`
    kChain,      // children[0] operators[0] children[1] operators[1] children[2] ...
    kNegate,     // - children[0]
    kPower,      // children[0] ^ children[1]
    kCall,       // `function` of the children; a series function has one child and `value`
  };

  Kind kind = Kind::kNumber;
  // The node's own token: the number, the reference, or the function's name (a series
  // function's parameter is at `parameterBegin`..`parameterEnd`).
  std::size_t begin = 0;
  std::size_t end = 0;
  double value = 0;
  std::string name;
  RecipeToken token;
  GenVarFunction function = GenVarFunction::kLog;
  std::size_t parameterBegin = 0;
  std::size_t parameterEnd = 0;
  std::vector<GenVarOperator> operators;
  std::vector<std::unique_ptr<GenVarNode>> children;
};

enum class GenVarSyntax { kFormula, kRecipe };

// The tree of `text`. Throws `NCError` for an empty text and any syntax error.
std::unique_ptr<GenVarNode> ParseGenVarText(std::string_view text, GenVarSyntax syntax);

// Calls `visit(node)` for every reference of the tree, in the order of the text.
template <class Visit>
void ForEachReference(const GenVarNode& node, Visit&& visit) {
  if (node.kind == GenVarNode::Kind::kReference) visit(node);
  for (const auto& child : node.children) ForEachReference(*child, visit);
}

}  // namespace ncds::detail

#endif  // NCDS_DERIVED_DETAIL_GENVARSYNTAX_H
