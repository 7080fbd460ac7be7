#include "ncds/derived/detail/GenVarSyntax.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"
#include "ncds/metadata/UniqueIDs.h"

namespace ncds::detail {

const std::vector<GenVarFunctionInfo> kGenVarFunctions = {
    {"log", GenVarFunction::kLog, 1},     {"ln", GenVarFunction::kLog, 1},
    {"log10", GenVarFunction::kLog10, 1}, {"exp", GenVarFunction::kExp, 1},
    {"sqrt", GenVarFunction::kSqrt, 1},   {"abs", GenVarFunction::kAbs, 1},
    {"min", GenVarFunction::kMin, -1},    {"max", GenVarFunction::kMax, -1},
    {"pow", GenVarFunction::kPow, 2},     {"if", GenVarFunction::kIf, 3},
    {"Lag", GenVarFunction::kLag, 2},     {"Delta", GenVarFunction::kDelta, 2},
    {"Shift", GenVarFunction::kShift, 2}, {"EWMA", GenVarFunction::kEWMA, 2},
    {"Diff1", GenVarFunction::kDiff1, 1}, {"Diff2", GenVarFunction::kDiff2, 1},
    {"CuSum", GenVarFunction::kCuSum, 1},
};

bool IsSeriesFunction(GenVarFunction function) { return function >= GenVarFunction::kLag; }

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsHigh(char c) { return static_cast<unsigned char>(c) >= 0x80; }
bool IsNameStart(char c) { return IsAsciiLetter(c) || c == '_' || c == '$' || IsHigh(c); }
bool IsNamePart(char c) { return IsNameStart(c) || IsDigit(c) || c == '.'; }

// The digits from `at` as an unsigned number that stops growing at the largest value.
unsigned long ReadDigits(std::string_view text, std::size_t at, std::size_t& end) {
  unsigned long number = 0;
  for (end = at; end < text.size() && IsDigit(text[end]); ++end) {
    const unsigned long digit = static_cast<unsigned long>(text[end] - '0');
    number = number > (ULONG_MAX - digit) / 10 ? ULONG_MAX : number * 10 + digit;
  }
  return number;
}

}  // namespace

std::optional<RecipeToken> ScanRecipeToken(std::string_view text, std::size_t at) {
  if (at >= text.size() || text[at] != 'v') return std::nullopt;
  if (at > 0 && std::isalpha(static_cast<unsigned char>(text[at - 1]))) return std::nullopt;
  RecipeToken token;
  token.begin = at;
  std::size_t digits = at + 1;
  if (digits + 1 < text.size() && text[digits] == 'i' && text[digits + 1] == 'd') {
    token.idForm = true;
    digits += 2;
  }
  if (digits >= text.size() || !IsDigit(text[digits])) return std::nullopt;
  token.number = ReadDigits(text, digits, token.end);
  if (token.idForm && token.number == 0) token.number = NCUniqueIDs::kNone;
  return token;
}

int CharacterPosition(std::string_view text, std::size_t offset) {
  int position = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++position;
  }
  return position;
}

std::string QuoteGenVarName(std::string_view name) {
  bool plain = !name.empty() && IsNameStart(name[0]);
  for (const char c : name) plain = plain && IsNamePart(c);
  if (plain) return std::string(name);
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

namespace {

enum class TokenKind {
  kEnd,
  kNumber,
  kName,
  kQuoted,
  kReference,
  kOpen,
  kClose,
  kComma,
  kOperator
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::size_t begin = 0;
  std::size_t end = 0;
  double value = 0;
  std::string name;  // a name without its quotes
  RecipeToken reference;
};

// Operators by binding, loosest first; each level is one chain.
struct OperatorSpelling {
  const char* text;
  GenVarOperator op;
  int level;
};
constexpr OperatorSpelling kOperators[] = {
    {"||", GenVarOperator::kOr, 0}, {"&&", GenVarOperator::kAnd, 1}, {"==", GenVarOperator::kEq, 2},
    {"!=", GenVarOperator::kNe, 2}, {"<=", GenVarOperator::kLe, 3},  {">=", GenVarOperator::kGe, 3},
    {"<", GenVarOperator::kLt, 3},  {">", GenVarOperator::kGt, 3},   {"+", GenVarOperator::kAdd, 4},
    {"-", GenVarOperator::kSub, 4}, {"*", GenVarOperator::kMul, 5},  {"/", GenVarOperator::kDiv, 5},
};
constexpr int kChainLevels = 6;

class Parser {
 public:
  Parser(std::string_view text, GenVarSyntax syntax) : mText(text), mSyntax(syntax) {}

  std::unique_ptr<GenVarNode> Parse() {
    Advance();
    if (mToken.kind == TokenKind::kEnd) {
      throw NCError(ExceptionMessage::translate("The formula is empty."));
    }
    auto root = Chain(0);
    if (mToken.kind == TokenKind::kClose) {
      throw NCError(ExceptionMessage::translate(
                        "The closing parenthesis at position {1} has no opening parenthesis.") %
                    Position(mToken.begin));
    }
    if (mToken.kind != TokenKind::kEnd) Unexpected();
    return root;
  }

 private:
  // One more level of nesting while it lives.
  class Nested {
   public:
    Nested(Parser& parser, std::size_t at) : mParser(parser) {
      if (++mParser.mDepth > kMaxGenVarNesting) {
        throw NCError(ExceptionMessage::translate(
                          "The formula is nested more than {1} levels deep at position {2}.") %
                      kMaxGenVarNesting % mParser.Position(at));
      }
    }
    ~Nested() { --mParser.mDepth; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

   private:
    Parser& mParser;
  };

  int Position(std::size_t offset) const { return CharacterPosition(mText, offset); }

  [[noreturn]] void Unexpected() const {
    if (mToken.kind == TokenKind::kEnd) {
      throw NCError(ExceptionMessage::translate("An operand is missing at position {1}.") %
                    Position(mToken.begin));
    }
    throw NCError(ExceptionMessage::translate("Unexpected {1} at position {2}.") %
                  std::string(mText.substr(mToken.begin, mToken.end - mToken.begin)) %
                  Position(mToken.begin));
  }

  [[noreturn]] void NotClosed(std::size_t open) const {
    if (mToken.kind != TokenKind::kEnd) Unexpected();
    throw NCError(ExceptionMessage::translate("The parenthesis at position {1} is not closed.") %
                  Position(open));
  }

  // ---- Lexer ----

  void Advance() {
    std::size_t at = mToken.end;
    while (at < mText.size() && IsSpace(mText[at])) ++at;
    mToken = Token();
    mToken.begin = at;
    mToken.end = at + 1;
    if (at >= mText.size()) {
      mToken.end = at;
      return;
    }
    const char c = mText[at];
    if (IsDigit(c) || (c == '.' && at + 1 < mText.size() && IsDigit(mText[at + 1]))) {
      LexNumber(at);
    } else if (mSyntax == GenVarSyntax::kRecipe) {
      if (const auto reference = ScanRecipeToken(mText, at)) {
        mToken.kind = TokenKind::kReference;
        mToken.reference = *reference;
        mToken.end = reference->end;
      } else if (IsAsciiLetter(c)) {
        LexFunctionName(at);
      } else {
        LexPunctuation(at);
      }
    } else if (IsNameStart(c)) {
      std::size_t end = at;
      while (end < mText.size() && IsNamePart(mText[end])) ++end;
      mToken.kind = TokenKind::kName;
      mToken.end = end;
      mToken.name = std::string(mText.substr(at, end - at));
    } else if (c == '"' || c == '`') {
      LexQuoted(at, c);
    } else {
      LexPunctuation(at);
    }
  }

  void LexNumber(std::size_t at) {
    std::size_t end = at;
    while (end < mText.size() && IsDigit(mText[end])) ++end;
    if (end < mText.size() && mText[end] == '.') {
      ++end;
      while (end < mText.size() && IsDigit(mText[end])) ++end;
    }
    if (end < mText.size() && (mText[end] == 'e' || mText[end] == 'E')) {
      std::size_t digits = end + 1;
      if (digits < mText.size() && (mText[digits] == '+' || mText[digits] == '-')) ++digits;
      if (digits < mText.size() && IsDigit(mText[digits])) {
        end = digits;
        while (end < mText.size() && IsDigit(mText[end])) ++end;
      }
    }
    const std::string literal(mText.substr(at, end - at));
    mToken.kind = TokenKind::kNumber;
    mToken.end = end;
    mToken.value = vxstrtod(literal.c_str(), nullptr);
    if (!std::isfinite(mToken.value)) {
      throw NCError(ExceptionMessage::translate("The number at position {1} is out of range.") %
                    Position(at));
    }
  }

  // Letters and digits, up to a recipe token that a digit is followed by ("x2v3").
  void LexFunctionName(std::size_t at) {
    std::size_t end = at + 1;
    while (end < mText.size() && (IsAsciiLetter(mText[end]) || IsDigit(mText[end])) &&
           !ScanRecipeToken(mText, end)) {
      ++end;
    }
    mToken.kind = TokenKind::kName;
    mToken.end = end;
    mToken.name = std::string(mText.substr(at, end - at));
  }

  void LexQuoted(std::size_t at, char quote) {
    std::string name;
    for (std::size_t i = at + 1; i < mText.size(); ++i) {
      if (mText[i] != quote) {
        name += mText[i];
      } else if (i + 1 < mText.size() && mText[i + 1] == quote) {
        name += quote;
        ++i;
      } else {
        mToken.kind = TokenKind::kQuoted;
        mToken.end = i + 1;
        mToken.name = std::move(name);
        return;
      }
    }
    throw NCError(ExceptionMessage::translate("The quote at position {1} is not closed.") %
                  Position(at));
  }

  void LexPunctuation(std::size_t at) {
    const char c = mText[at];
    if (c == '(' || c == ')' || c == ',') {
      mToken.kind = c == '(' ? TokenKind::kOpen : c == ')' ? TokenKind::kClose : TokenKind::kComma;
      return;
    }
    if (c == '^') {  // binds tighter than the chains; see Power
      mToken.kind = TokenKind::kOperator;
      return;
    }
    for (const OperatorSpelling& spelling : kOperators) {
      const std::string_view text(spelling.text);
      if (mText.substr(at, text.size()) == text) {
        mToken.kind = TokenKind::kOperator;
        mToken.end = at + text.size();
        return;
      }
    }
    std::string shown;
    if (c >= ' ' && c < 0x7F) {
      shown = std::string(1, c);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
      shown = hex;
    }
    throw NCError(ExceptionMessage::translate("Unexpected character {1} at position {2}.") % shown %
                  Position(at));
  }

  // The operator spelt by the current token, or null.
  const OperatorSpelling* CurrentOperator() const {
    if (mToken.kind != TokenKind::kOperator) return nullptr;
    const std::string_view text = mText.substr(mToken.begin, mToken.end - mToken.begin);
    for (const OperatorSpelling& spelling : kOperators) {
      if (text == spelling.text) return &spelling;
    }
    return nullptr;
  }

  // ---- Grammar ----

  std::unique_ptr<GenVarNode> Chain(int level) {
    if (level == kChainLevels) return Unary();
    auto first = Chain(level + 1);
    const OperatorSpelling* op = CurrentOperator();
    if (!op || op->level != level) return first;
    auto chain = std::make_unique<GenVarNode>();
    chain->kind = GenVarNode::Kind::kChain;
    chain->begin = first->begin;
    chain->children.push_back(std::move(first));
    while (op && op->level == level) {
      chain->operators.push_back(op->op);
      Advance();
      chain->children.push_back(Chain(level + 1));
      op = CurrentOperator();
    }
    return chain;
  }

  std::unique_ptr<GenVarNode> Unary() {
    const OperatorSpelling* op = CurrentOperator();
    if (!op || (op->op != GenVarOperator::kSub && op->op != GenVarOperator::kAdd)) return Power();
    const std::size_t at = mToken.begin;
    Nested nested(*this, at);
    Advance();
    auto operand = Unary();
    if (op->op == GenVarOperator::kAdd) return operand;
    auto negate = std::make_unique<GenVarNode>();
    negate->kind = GenVarNode::Kind::kNegate;
    negate->begin = at;
    negate->end = at + 1;
    negate->children.push_back(std::move(operand));
    return negate;
  }

  std::unique_ptr<GenVarNode> Power() {
    auto base = Primary();
    if (mToken.kind != TokenKind::kOperator || mText[mToken.begin] != '^') return base;
    Nested nested(*this, mToken.begin);
    auto power = std::make_unique<GenVarNode>();
    power->kind = GenVarNode::Kind::kPower;
    power->begin = mToken.begin;
    power->end = mToken.end;
    Advance();
    power->children.push_back(std::move(base));
    power->children.push_back(Unary());
    return power;
  }

  std::unique_ptr<GenVarNode> Primary() {
    auto node = std::make_unique<GenVarNode>();
    node->begin = mToken.begin;
    node->end = mToken.end;
    switch (mToken.kind) {
      case TokenKind::kNumber:
        node->value = mToken.value;
        Advance();
        return node;
      case TokenKind::kReference:
        node->kind = GenVarNode::Kind::kReference;
        node->token = mToken.reference;
        Advance();
        return node;
      case TokenKind::kQuoted:
        node->kind = GenVarNode::Kind::kReference;
        node->name = mToken.name;
        Advance();
        return node;
      case TokenKind::kName:
        if (NextIsOpen()) return Call();
        if (mSyntax == GenVarSyntax::kRecipe) Unexpected();
        node->kind = GenVarNode::Kind::kReference;
        node->name = mToken.name;
        Advance();
        return node;
      case TokenKind::kOpen: {
        const std::size_t open = mToken.begin;
        Nested nested(*this, open);
        Advance();
        auto inner = Chain(0);
        if (mToken.kind != TokenKind::kClose) NotClosed(open);
        Advance();
        return inner;
      }
      default:
        Unexpected();
    }
  }

  bool NextIsOpen() const {
    std::size_t at = mToken.end;
    while (at < mText.size() && IsSpace(mText[at])) ++at;
    return at < mText.size() && mText[at] == '(';
  }

  std::unique_ptr<GenVarNode> Call() {
    auto call = std::make_unique<GenVarNode>();
    call->kind = GenVarNode::Kind::kCall;
    call->begin = mToken.begin;
    call->end = mToken.end;
    const GenVarFunctionInfo* info = nullptr;
    for (const GenVarFunctionInfo& candidate : kGenVarFunctions) {
      if (VxStdString::CompareNoCase(candidate.name, mToken.name) == 0) {
        info = &candidate;
        break;
      }
    }
    if (!info) {
      throw NCError(ExceptionMessage::translate("Unknown function {1} at position {2}.") %
                    mToken.name % Position(call->begin));
    }
    call->function = info->function;
    call->name = info->name;
    Advance();  // the name
    const std::size_t open = mToken.begin;
    Nested nested(*this, open);
    Advance();  // the parenthesis
    int count = 0;
    if (mToken.kind != TokenKind::kClose) {
      while (true) {
        ++count;
        if (count == 2 && info->arguments == 2 && IsSeriesFunction(info->function)) {
          Parameter(*call);
        } else {
          call->children.push_back(Chain(0));
        }
        if (mToken.kind == TokenKind::kClose) break;
        if (mToken.kind != TokenKind::kComma) NotClosed(open);
        Advance();
      }
    }
    Advance();  // the closing parenthesis
    if (info->arguments < 0 && count == 0) {
      throw NCError(
          ExceptionMessage::translate("{1} at position {2} needs at least one argument.") %
          info->name % Position(call->begin));
    }
    if (info->arguments >= 0 && count != info->arguments) {
      throw NCError(
          ExceptionMessage::translate(
              "Wrong number of arguments to {1} at position {2}: {3} expected, {4} given.") %
          info->name % Position(call->begin) % info->arguments % count);
    }
    return call;
  }

  // The second argument of a series function: a number written out, a whole one but for EWMA.
  void Parameter(GenVarNode& call) {
    const std::string_view literal = mText.substr(mToken.begin, mToken.end - mToken.begin);
    if (call.function == GenVarFunction::kEWMA) {
      if (mToken.kind != TokenKind::kNumber || !(mToken.value > 0 && mToken.value <= 1)) {
        throw NCError(ExceptionMessage::translate(
                          "The second argument of EWMA at position {1} must be a number above 0 "
                          "and at most 1.") %
                      Position(call.begin));
      }
    } else {
      bool whole = mToken.kind == TokenKind::kNumber && mToken.value <= INT_MAX;
      for (const char c : literal) whole = whole && IsDigit(c);
      if (!whole) {
        throw NCError(ExceptionMessage::translate(
                          "The second argument of {1} at position {2} must be a whole number.") %
                      call.name % Position(call.begin));
      }
    }
    call.value = mToken.value;
    call.parameterBegin = mToken.begin;
    call.parameterEnd = mToken.end;
    Advance();
  }

  std::string_view mText;
  GenVarSyntax mSyntax;
  Token mToken;
  int mDepth = 0;
};

}  // namespace

std::unique_ptr<GenVarNode> ParseGenVarText(std::string_view text, GenVarSyntax syntax) {
  return Parser(text, syntax).Parse();
}

}  // namespace ncds::detail
