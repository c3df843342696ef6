// What the host calls of OOCPointCloudTarn, which it does not link: it looks the functions up.
//
// A program that links the library needs none of this: it includes the headers and calls.
#pragma once

#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <filesystem>
#include <memory>
#include <new>

#include "Library.h"

// How the compiler writes the types below within an exported name.
#if defined(_WIN32)
#define UINT64_NAME "y"
#else
#define UINT64_NAME "m"
#endif
#define STRING_NAME "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

/// The functions of a loaded library. Keep it as long as any object lives that it made.
class TarnLibrary {
 public:
  using Cloud = TarnOOCPointCloud;
  using Expression = TarnOOCStringQueryExpression;
  using Evaluator = TarnOOCBooleanExpressionEvaluator;

  explicit TarnLibrary(const std::filesystem::path& file) : library_(file) {}

  /// Whether the file is that library, and has all that is looked up.
  [[nodiscard]] bool IsUsable() const {
    return library_.IsLoaded() && library_.Has("VELMORA_WORKS_QXB2_INTERNAL_OOCPointCloudTarn") &&
           makeCloud_ != nullptr && attach != nullptr && getIterationCount != nullptr &&
           getTimePoint != nullptr && getRoot != nullptr && getNode != nullptr &&
           getLodNodes != nullptr && getValues != nullptr && makeExpression_ != nullptr &&
           setText != nullptr && setCloud != nullptr && makeEvaluator_ != nullptr &&
           collectNames != nullptr && getNames != nullptr && setLayout != nullptr &&
           initialize != nullptr && evaluate != nullptr;
  }

  // Objects are made in the program's memory by the library's constructors; deleting them is
  // virtual, and so leads into the library by itself.

  [[nodiscard]] std::unique_ptr<Cloud> MakeCloud() const {
    void* const memory = ::operator new(sizeof(Cloud));
    makeCloud_(memory);
    return std::unique_ptr<Cloud>(static_cast<Cloud*>(memory));
  }
  [[nodiscard]] std::unique_ptr<Expression> MakeExpression() const {
    void* const memory = ::operator new(sizeof(Expression));
    makeExpression_(memory);
    return std::unique_ptr<Expression>(static_cast<Expression*>(memory));
  }
  [[nodiscard]] std::unique_ptr<Evaluator> MakeEvaluator(Cloud& cloud,
                                                         OOCPCBooleanAST* tree) const {
    void* const memory = ::operator new(sizeof(Evaluator));
    makeEvaluator_(memory, &cloud, tree);
    return std::unique_ptr<Evaluator>(static_cast<Evaluator*>(memory));
  }

 private:
  Library library_;

  template <typename Function>
  Function Find(const char* exportedName) const {
    return library_.Find<Function>(exportedName);
  }

  void (*makeCloud_)(void*) = Find<void (*)(void*)>("_ZN17TarnOOCPointCloudC1Ev");
  void (*makeExpression_)(void*) = Find<void (*)(void*)>("_ZN28TarnOOCStringQueryExpressionC1Ev");
  void (*makeEvaluator_)(void*, Cloud*, OOCPCBooleanAST*) =
      Find<void (*)(void*, Cloud*, OOCPCBooleanAST*)>(
          "_ZN33TarnOOCBooleanExpressionEvaluatorC1EP17TarnOOCPointCloudP15OOCPCBooleanAST");

 public:
  // Called as (cloud.*library.attach)(…). The headers say what each does.

  const decltype(&Cloud::AttachDataRepository) attach =
      Find<decltype(&Cloud::AttachDataRepository)>(
          "_ZN17TarnOOCPointCloud20AttachDataRepositoryEP20OOCPCIDataRepository");
  const decltype(&Cloud::GetUpdateIterationCount) getIterationCount =
      Find<decltype(&Cloud::GetUpdateIterationCount)>(
          "_ZNK17TarnOOCPointCloud23GetUpdateIterationCountEv");
  const decltype(&Cloud::GetTimePoint) getTimePoint = Find<decltype(&Cloud::GetTimePoint)>(
      "_ZN17TarnOOCPointCloud12GetTimePointE" UINT64_NAME "R" UINT64_NAME);
  const decltype(&Cloud::GetOOCRootNode) getRoot = Find<decltype(&Cloud::GetOOCRootNode)>(
      "_ZN17TarnOOCPointCloud14GetOOCRootNodeE" UINT64_NAME "R26OOCPCOctreeAcceleratorNode");
  const decltype(&Cloud::GetOOCNode) getNode = Find<decltype(&Cloud::GetOOCNode)>(
      "_ZNK17TarnOOCPointCloud10GetOOCNodeE" UINT64_NAME "R26OOCPCOctreeAcceleratorNode");
  const decltype(&Cloud::GetLODNodeCache) getLodNodes =
      Find<decltype(&Cloud::GetLODNodeCache)>("_ZN17TarnOOCPointCloud15GetLODNodeCacheE" UINT64_NAME
                                              "RSt10shared_ptrI17OOCPCLODNodeCacheE");
  const decltype(&Cloud::GetMetaDataContainer) getValues =
      Find<decltype(&Cloud::GetMetaDataContainer)>(
          "_ZNK17TarnOOCPointCloud20GetMetaDataContainerEPKc");

  const decltype(&Expression::SetInputString) setText = Find<decltype(&Expression::SetInputString)>(
      "_ZN28TarnOOCStringQueryExpression14SetInputStringERK" STRING_NAME);
  const decltype(&Expression::SetPointCloud) setCloud = Find<decltype(&Expression::SetPointCloud)>(
      "_ZN28TarnOOCStringQueryExpression13SetPointCloudEP17TarnOOCPointCloud");

  const decltype(&Evaluator::CompleteMetaDatas) collectNames =
      Find<decltype(&Evaluator::CompleteMetaDatas)>(
          "_ZN33TarnOOCBooleanExpressionEvaluator17CompleteMetaDatasEP15OOCPCBooleanAST");
  const decltype(&Evaluator::GetMetaDatas) getNames = Find<decltype(&Evaluator::GetMetaDatas)>(
      "_ZNK33TarnOOCBooleanExpressionEvaluator12GetMetaDatasERSt6vectorI" STRING_NAME "SaIS6_EE");
  const decltype(&Evaluator::CompleteBufferMetaDatas) setLayout =
      Find<decltype(&Evaluator::CompleteBufferMetaDatas)>(
          "_ZN33TarnOOCBooleanExpressionEvaluator23CompleteBufferMetaDatasESt6vectorI" STRING_NAME
          "SaIS6_EES0_IjSaIjEESA_");
  // Of two functions of that name each, hence the types in full.
  using Initialize = HRESULT (Evaluator::*)();
  const Initialize initialize =
      Find<Initialize>("_ZN33TarnOOCBooleanExpressionEvaluator17InitializeQueriesEv");
  using Evaluate = bool (Evaluator::*)(const char*, unsigned, unsigned);
  const Evaluate evaluate =
      Find<Evaluate>("_ZN33TarnOOCBooleanExpressionEvaluator18EvaluateExpressionEPKcjj");
};

#undef UINT64_NAME
#undef STRING_NAME
