// A float64 executor of an imported network graph, written from the
// operators' definitions one output element at a time: none of the engine's
// rows, rings, bands or vector blocks. Tests compare the engine with it.
#ifndef VORLITH_TESTS_ORACLE_NETWORK_ORACLE_H_
#define VORLITH_TESTS_ORACLE_NETWORK_ORACLE_H_

#include <cstdint>
#include <vector>

#include "src/model/onnx_graph.h"

namespace vorlith::oracle {

// The graph's output for an h x w input (NCHW, one channel); *shape gets
// [1, C, H', W'].
std::vector<double> RunGraph(const model::Graph& graph, const std::vector<float>& input, int64_t h, int64_t w,
                             std::vector<int64_t>* shape);

}  // namespace vorlith::oracle

#endif  // VORLITH_TESTS_ORACLE_NETWORK_ORACLE_H_
