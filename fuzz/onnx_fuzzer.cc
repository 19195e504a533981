// Arbitrary bytes as a model file; when they load, a prediction on small
// inputs. Loading may fail with a message; nothing may crash, leak or read
// out of bounds.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "src/model/network.h"
#include "src/model/onnx_graph.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vorlith::model::Graph;
  Graph graph;
  std::string error;
  if (!vorlith::model::ImportOnnxBytes(std::string(reinterpret_cast<const char*>(data), size), "input", &graph,
                                       &error)) {
    return 0;
  }
  auto net = vorlith::model::Network::FromGraph(std::move(graph), 2);
  for (const auto& [h, w] : {std::pair<int64_t, int64_t>{5, 7}, {1, 1}, {17, 3}}) {
    std::vector<float> in(static_cast<size_t>(h * w));
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>((i * 37) % 256);
    std::vector<float> out;
    std::vector<int64_t> shape;
    net->Run(in.data(), {1, 1, h, w}, &out, &shape, &error);
  }
  return 0;
}
