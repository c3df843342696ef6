// Many models of which a chunk uses few: each is made when it is first asked for.
#pragma once

#include <memory>
#include <vector>

#include "host/formats/laz/ArithmeticModels.h"

namespace tarnhost::laz {

template <unsigned kSymbols, unsigned kModels>
class ModelBank {
 public:
  /// Forgets all models; their memory is kept for others.
  void Start() {
    models_.fill(nullptr);
    used_ = 0;
  }

  template <bool kDecodes>
  SymbolModel<kSymbols>& Get(std::size_t index) {
    SymbolModel<kSymbols>* model = models_[index];
    return model != nullptr ? *model : Make<kDecodes>(index);
  }

 private:
  template <bool kDecodes>
  SymbolModel<kSymbols>& Make(std::size_t index) {
    if (used_ == made_.size()) made_.push_back(std::make_unique<SymbolModel<kSymbols>>());
    SymbolModel<kSymbols>* model = made_[used_++].get();
    model->template Start<kDecodes>(kSymbols);
    models_[index] = model;
    return *model;
  }

  std::array<SymbolModel<kSymbols>*, kModels> models_{};
  std::vector<std::unique_ptr<SymbolModel<kSymbols>>> made_;
  std::size_t used_ = 0;
};

}  // namespace tarnhost::laz
