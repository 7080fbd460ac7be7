#include "ncds/derived/GenVarEvaluator.h"

#include <dlfcn.h>
#include <muParser.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <unordered_map>
#include <utility>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/detail/GenVarSyntax.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

namespace ncds::detail {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr float kMissing = -99.0F;
constexpr int kMaxChain = kMaxGenVarNesting;
// muparser runs over blocks of this many rows: its inputs and results stay in the cache, and
// only what must outlive a block (the result of a series function) takes a whole column.
constexpr std::size_t kBlockRows = 8192;

double FromCell(float cell) { return cell == kMissing || !std::isfinite(cell) ? kNaN : cell; }
double Finite(double value) { return std::isfinite(value) ? value : kNaN; }

// The values an expression reads: a computed column of doubles, NaN where missing, every
// other value finite; without one, a dataset column as it is stored (floats, -99 where
// missing; null without rows).
struct Operand {
  const float* cells = nullptr;
  std::shared_ptr<const std::vector<double>> computed;

  bool operator==(const Operand& other) const {
    return cells == other.cells && computed == other.computed;
  }
  double operator[](std::size_t row) const {
    return computed ? (*computed)[row] : FromCell(cells[row]);
  }
  // Rows [begin, begin + count) into `out`, missing as NaN.
  void Read(std::size_t begin, std::size_t count, double* out) const {
    if (computed) {
      std::copy_n(computed->data() + begin, count, out);
    } else {
      for (std::size_t i = 0; i < count; ++i) out[i] = FromCell(cells[begin + i]);
    }
  }
};

// muparser's bulk mode spreads the rows over OpenMP threads when muparser was built with
// OpenMP, as Debian's is. The library starts no threads, so while one lives the calling
// thread's OpenMP team size is 1, and afterwards what it was. The runtime is looked up only
// when muparser has loaded one; without it there is nothing to hold back.
class OneOpenMPThread {
 public:
  OneOpenMPThread() {
    if (Runtime().set) {
      mSaved = Runtime().get();
      Runtime().set(1);
    }
  }
  ~OneOpenMPThread() {
    if (Runtime().set) Runtime().set(mSaved);
  }
  OneOpenMPThread(const OneOpenMPThread&) = delete;
  OneOpenMPThread& operator=(const OneOpenMPThread&) = delete;

 private:
  struct Functions {
    int (*get)() = nullptr;
    void (*set)(int) = nullptr;
  };

  static const Functions& Runtime() {
    static const Functions functions = [] {
      Functions found;
      for (const char* library : {"libgomp.so.1", "libomp.so.5", "libomp.so"}) {
        void* handle = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
        if (!handle) continue;
        found.get = reinterpret_cast<int (*)()>(dlsym(handle, "omp_get_max_threads"));
        found.set = reinterpret_cast<void (*)(int)>(dlsym(handle, "omp_set_num_threads"));
        if (found.get && found.set) return found;
        found = Functions();
      }
      return found;
    }();
    return functions;
  }

  int mSaved = 1;
};

// The leaves of one muparser expression: columns bound as array variables, numbers as
// constants (so that no number is printed and read back).
struct Leaves {
  std::vector<std::pair<std::string, Operand>> columns;
  std::vector<std::pair<std::string, double>> constants;
  bool dropsMissing = false;  // whether some operation may turn NaN into a number

  std::string Variable(Operand column) {
    for (const auto& [name, bound] : columns) {
      if (bound == column) return name;
    }
    columns.emplace_back("_c" + std::to_string(columns.size()), std::move(column));
    return columns.back().first;
  }
  std::string Constant(double value) {
    constants.emplace_back("_k" + std::to_string(constants.size()), value);
    return constants.back().first;
  }
};

const char* OperatorText(GenVarOperator op) {
  switch (op) {
    case GenVarOperator::kOr:
      return "||";
    case GenVarOperator::kAnd:
      return "&&";
    case GenVarOperator::kEq:
      return "==";
    case GenVarOperator::kNe:
      return "!=";
    case GenVarOperator::kLt:
      return "<";
    case GenVarOperator::kLe:
      return "<=";
    case GenVarOperator::kGt:
      return ">";
    case GenVarOperator::kGe:
      return ">=";
    case GenVarOperator::kAdd:
      return "+";
    case GenVarOperator::kSub:
      return "-";
    case GenVarOperator::kMul:
      return "*";
    case GenVarOperator::kDiv:
      return "/";
  }
  return "";
}

// The 0-based first row of every batch, then the row count.
std::vector<std::size_t> BatchBounds(const NCDataSet& dataSet, const NCProjectBase* project) {
  const auto rows = static_cast<std::size_t>(dataSet.SizeObservations());
  std::vector<std::size_t> bounds{0};
  const auto batches = dataSet.GetBatchInfoVector();
  if (batches && !batches->empty() && rows > 0) {
    if (project && project->GetObservations().HasBatches()) {
      // The rows themselves tell their batches, even when the batch records are out of date.
      bounds.clear();
      for (const int start : BatchUtilities::GetRunStarts(
               project->GetObservations(), dataSet.GetObservationInfoVector(), false)) {
        bounds.push_back(static_cast<std::size_t>(start - 1));
      }
    } else {
      std::size_t start = 0;
      for (const auto& batch : *batches) {
        const int count = batch ? batch->GetNumObs(nullptr, true) : 0;
        start += static_cast<std::size_t>(std::max(count, 0));
        if (start >= rows) break;
        bounds.push_back(start);
      }
    }
  }
  bounds.push_back(rows);
  return bounds;
}

}  // namespace
}  // namespace ncds::detail

using namespace ncds::detail;

class GenVarEvaluator::Impl {
 public:
  explicit Impl(const NCDataSet& dataSet)
      : mDataSet(dataSet),
        mProject(dataSet.GetProject()),
        mVariables(mProject ? &mProject->GetVariables() : nullptr),
        mColumnIDs(dataSet.GetVarIDs()),
        mRows(static_cast<std::size_t>(dataSet.SizeObservations())),
        mBounds(BatchBounds(dataSet, mProject.get())) {}

  std::size_t Rows() const { return mRows; }

  // The values of `recipe` as floats into `out`; the last step of an expression writes there
  // directly.
  void Recipe(const std::string& recipe, float* out) {
    const auto root = Prepare(recipe, 0);
    if (IsRegion(*root)) {
      Region(*root, [out](std::size_t begin, std::size_t count, const double* block) {
        for (std::size_t i = 0; i < count; ++i) out[begin + i] = ToFloat(block[i]);
      });
    } else {
      ToFloats(Node(*root), out);
    }
  }

  void Variable(unsigned long id, float* out) { ToFloats(Variable(id, 0), out); }

 private:
  static float ToFloat(double value) {
    const auto single = static_cast<float>(value);
    return std::isfinite(single) ? single : kMissing;
  }

  void ToFloats(const Operand& values, float* out) const {
    for (std::size_t i = 0; i < mRows; ++i) out[i] = ToFloat(values[i]);
  }

  // The tree of `recipe`, with every variable it names computed. They are computed from a flat
  // list: a generated one computes its own recipe, and this tree's walk is not on the stack
  // meanwhile.
  std::unique_ptr<GenVarNode> Prepare(const std::string& recipe, int chain) {
    auto root = ParseGenVarText(recipe, GenVarSyntax::kRecipe);
    std::vector<RecipeToken> tokens;
    ForEachReference(*root, [&](const GenVarNode& node) { tokens.push_back(node.token); });
    for (const RecipeToken& token : tokens) Reference(token, chain);
    return root;
  }

  Operand Reference(const RecipeToken& token, int chain) {
    if (token.idForm) return Variable(token.number, chain);
    if (token.number < 1 || token.number > mColumnIDs.size()) {
      throw NCError(ExceptionMessage::translate(
          "Invalid variable identifier, possible due to incorrect conversion of the project."));
    }
    return Variable(mColumnIDs[token.number - 1], chain);
  }

  Operand Variable(unsigned long id, int chain) {
    const VariableInfo* info =
        id == NCUniqueIDs::kNone || !mVariables ? nullptr : (*mVariables)[id];
    if (info && !info->GetRecipe().empty()) return Generated(id, *info, chain);
    const std::ptrdiff_t column = id == NCUniqueIDs::kNone ? -1 : mColumnIDs.Find(id);
    if (column < 0) {
      throw NCError(ExceptionMessage::translate(
          "Invalid generated variable, possible due to a deleted source variable."));
    }
    Operand cells;
    cells.cells = mDataSet.GetMatrix().ColumnData(static_cast<std::size_t>(column));
    return cells;
  }

  Operand Generated(unsigned long id, const VariableInfo& info, int chain) {
    if (const auto done = mGenerated.find(id); done != mGenerated.end()) return done->second;
    if (mInProgress.count(id)) {
      throw NCError(ExceptionMessage::translate("Illegal recursion in generated variable: {1}") %
                    info.GetRecipe());
    }
    if (chain >= kMaxChain) {
      throw NCError(ExceptionMessage::translate(
                        "Generated variables refer to each other more than {1} levels deep.") %
                    kMaxChain);
    }
    struct InProgress {
      std::set<unsigned long>& ids;
      unsigned long id;
      ~InProgress() { ids.erase(id); }
    } inProgress{mInProgress, id};
    mInProgress.insert(id);
    const Operand values = Node(*Prepare(info.GetRecipe(), chain + 1));
    mGenerated.emplace(id, values);
    return values;
  }

  static bool IsRegion(const GenVarNode& node) {
    return node.kind != GenVarNode::Kind::kReference &&
           !(node.kind == GenVarNode::Kind::kCall && IsSeriesFunction(node.function));
  }

  // The values of `node`, whose references are computed already.
  Operand Node(const GenVarNode& node) {
    if (node.kind == GenVarNode::Kind::kReference) return Reference(node.token, 0);
    Operand result;
    if (!IsRegion(node)) {
      result.computed = Series(node.function, Node(*node.children[0]), node.value);
      return result;
    }
    auto values = std::make_shared<std::vector<double>>(mRows);
    Region(node, [&values](std::size_t begin, std::size_t count, const double* block) {
      std::copy_n(block, count, values->data() + begin);
    });
    result.computed = std::move(values);
    return result;
  }

  // Runs `node` through muparser's bulk mode a block of rows at a time and hands each block of
  // results (finite or NaN) to `store(first row, count, values)`.
  template <class Store>
  void Region(const GenVarNode& node, Store store) {
    Leaves leaves;
    const std::string expression = Emit(node, leaves);
    if (expression.size() > static_cast<std::size_t>(mu::MaxLenExpression)) {
      throw NCError(ExceptionMessage::translate("The formula is too long to compute."));
    }
    if (mRows == 0) return;
    const std::size_t blockRows = std::min(mRows, kBlockRows);
    std::vector<std::vector<double>> inputs(leaves.columns.size(), std::vector<double>(blockRows));
    std::vector<double> results(blockRows);
    mu::Parser parser;
    try {
      for (const auto& [name, value] : leaves.constants) parser.DefineConst(name, value);
      for (std::size_t k = 0; k < inputs.size(); ++k) {
        parser.DefineVar(leaves.columns[k].first, inputs[k].data());
      }
      parser.SetExpr(expression);
    } catch (const mu::Parser::exception_type& error) {
      throw NCInternalError("GenVarEvaluator: muparser refused \"" + expression +
                            "\": " + error.GetMsg());
    }
    OneOpenMPThread oneThread;
    for (std::size_t begin = 0; begin < mRows; begin += blockRows) {
      const std::size_t count = std::min(blockRows, mRows - begin);
      for (std::size_t k = 0; k < inputs.size(); ++k) {
        leaves.columns[k].second.Read(begin, count, inputs[k].data());
      }
      try {
        parser.Eval(results.data(), static_cast<int>(count));
      } catch (const mu::Parser::exception_type& error) {
        throw NCInternalError("GenVarEvaluator: muparser refused \"" + expression +
                              "\": " + error.GetMsg());
      }
      for (std::size_t i = 0; i < count; ++i) results[i] = Finite(results[i]);
      // Arithmetic carries NaN along; comparisons, logic, min, max, if() and powers (NaN^0 is
      // 1) may drop it, so there every row that read a missing value is made missing.
      if (leaves.dropsMissing) {
        for (const auto& input : inputs) {
          for (std::size_t i = 0; i < count; ++i) {
            if (std::isnan(input[i])) results[i] = kNaN;
          }
        }
      }
      store(begin, count, results.data());
    }
  }

  // The muparser text of `node`; references and series functions become bound columns.
  std::string Emit(const GenVarNode& node, Leaves& leaves) {
    const auto operand = [&](std::size_t k) { return Emit(*node.children[k], leaves); };
    switch (node.kind) {
      case GenVarNode::Kind::kNumber:
        return leaves.Constant(node.value);
      case GenVarNode::Kind::kReference:
        return leaves.Variable(Node(node));
      case GenVarNode::Kind::kChain: {
        // Comparisons and logic come before + in the operator order.
        leaves.dropsMissing = leaves.dropsMissing || node.operators[0] < GenVarOperator::kAdd;
        std::string text = "(" + operand(0);
        for (std::size_t k = 0; k < node.operators.size(); ++k) {
          text += OperatorText(node.operators[k]);
          text += operand(k + 1);
        }
        return text + ")";
      }
      case GenVarNode::Kind::kNegate:
        return "(-" + operand(0) + ")";
      case GenVarNode::Kind::kPower:
        leaves.dropsMissing = true;
        return "(" + operand(0) + "^" + operand(1) + ")";
      case GenVarNode::Kind::kCall:
        break;
    }
    switch (node.function) {
      case GenVarFunction::kLog:
        return "ln(" + operand(0) + ")";
      case GenVarFunction::kLog10:
        return "log10(" + operand(0) + ")";
      case GenVarFunction::kExp:
        return "exp(" + operand(0) + ")";
      case GenVarFunction::kSqrt:
        return "sqrt(" + operand(0) + ")";
      case GenVarFunction::kAbs:
        return "abs(" + operand(0) + ")";
      case GenVarFunction::kMin:
      case GenVarFunction::kMax: {
        leaves.dropsMissing = true;
        std::string text = node.function == GenVarFunction::kMin ? "min(" : "max(";
        for (std::size_t k = 0; k < node.children.size(); ++k) {
          if (k > 0) text += ',';
          text += operand(k);
        }
        return text + ")";
      }
      case GenVarFunction::kPow:
        leaves.dropsMissing = true;
        return "(" + operand(0) + "^" + operand(1) + ")";
      case GenVarFunction::kIf:
        leaves.dropsMissing = true;
        return "(" + operand(0) + "?" + operand(1) + ":" + operand(2) + ")";
      default:
        return leaves.Variable(Node(node));
    }
  }

  // How many rows at the start of a batch (at its end for Shift) would read outside it.
  static std::size_t Reach(GenVarFunction function, std::size_t k) {
    switch (function) {
      case GenVarFunction::kDiff1:
        return 1;
      case GenVarFunction::kDiff2:
        return 2;
      case GenVarFunction::kEWMA:
      case GenVarFunction::kCuSum:
        return 0;
      default:
        return k;
    }
  }

  std::shared_ptr<const std::vector<double>> Series(GenVarFunction function, const Operand& x,
                                                    double parameter) {
    auto result = std::make_shared<std::vector<double>>(mRows);
    if (x.computed) {
      const double* values = x.computed->data();
      SeriesOver(
          function, [values](std::size_t i) { return values[i]; }, parameter, result->data());
    } else {
      const float* cells = x.cells;
      SeriesOver(
          function, [cells](std::size_t i) { return FromCell(cells[i]); }, parameter,
          result->data());
    }
    return result;
  }

  // Writes every row of every batch of `y`; rows without a value are NaN.
  template <class Read>
  void SeriesOver(GenVarFunction function, Read x, double parameter, double* y) const {
    const auto k = static_cast<std::size_t>(parameter);
    for (std::size_t b = 0; b + 1 < mBounds.size(); ++b) {
      const std::size_t s = mBounds[b];
      const std::size_t e = mBounds[b + 1];
      if (s >= e) continue;
      const std::size_t reach = std::min(Reach(function, k), e - s);
      switch (function) {
        case GenVarFunction::kLag:
          std::fill(y + s, y + s + reach, kNaN);
          for (std::size_t i = s + reach; i < e; ++i) y[i] = x(i - reach);
          break;
        case GenVarFunction::kShift:
          for (std::size_t i = s; i + reach < e; ++i) y[i] = x(i + reach);
          std::fill(y + e - reach, y + e, kNaN);
          break;
        case GenVarFunction::kDelta:
        case GenVarFunction::kDiff1:
          std::fill(y + s, y + s + reach, kNaN);
          for (std::size_t i = s + reach; i < e; ++i) y[i] = Finite(x(i) - x(i - reach));
          break;
        case GenVarFunction::kDiff2:
          std::fill(y + s, y + s + reach, kNaN);
          for (std::size_t i = s + reach; i < e; ++i) {
            y[i] = Finite(x(i) - 2 * x(i - 1) + x(i - 2));
          }
          break;
        case GenVarFunction::kEWMA: {
          double level = x(s);
          y[s] = level;
          for (std::size_t i = s + 1; i < e; ++i) {
            level = parameter * x(i) + (1 - parameter) * level;
            y[i] = Finite(level);
          }
          break;
        }
        case GenVarFunction::kCuSum: {
          double sum = 0;
          for (std::size_t i = s; i < e; ++i) y[i] = Finite(sum += x(i));
          break;
        }
        default:
          std::fill(y + s, y + e, kNaN);
          break;
      }
    }
  }

  const NCDataSet& mDataSet;
  boost::shared_ptr<NCProjectBase const> mProject;
  const NCVariables* mVariables;
  NCIntegralVector<unsigned long, 0> mColumnIDs;
  std::size_t mRows;
  std::vector<std::size_t> mBounds;
  std::unordered_map<unsigned long, Operand> mGenerated;
  std::set<unsigned long> mInProgress;
};

GenVarEvaluator::GenVarEvaluator(const NCDataSet& dataSet)
    : mImpl(std::make_unique<Impl>(dataSet)) {}

GenVarEvaluator::~GenVarEvaluator() = default;

void GenVarEvaluator::Evaluate(const std::string& recipe, float* values) {
  mImpl->Recipe(recipe, values);
}

std::vector<float> GenVarEvaluator::Evaluate(const std::string& recipe) {
  std::vector<float> values(mImpl->Rows());
  Evaluate(recipe, values.data());
  return values;
}

void GenVarEvaluator::EvaluateVariable(unsigned long varID, float* values) {
  mImpl->Variable(varID, values);
}

std::vector<float> GenVarEvaluator::EvaluateVariable(unsigned long varID) {
  std::vector<float> values(mImpl->Rows());
  EvaluateVariable(varID, values.data());
  return values;
}
