#include <talvcs/repository/repository.h>

#include <utility>

namespace TalVcs {

bool Repository::Checkout(TalStringViewT<WideChar> name) {
  if (m_storage == nullptr || !m_storage->BranchExist(name)) return false;
  m_currentBranch = name.ToString();
  return true;
}

bool Repository::CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (m_storage == nullptr || m_storage->BranchExist(name)) return false;
  const IRepository& self = *this;
  return m_storage->CreateBranch(name, commit ? std::move(commit) : self.GetHead());
}

bool Repository::BranchExist(TalStringViewT<WideChar> name) {
  return m_storage != nullptr && m_storage->BranchExist(name);
}

bool Repository::MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (m_storage == nullptr || !m_storage->BranchExist(name) || !commit) return false;
  return m_storage->UpdateBranch(name, std::move(commit));
}

bool Repository::RemoveBranch(TalStringViewT<WideChar> name) {
  return m_storage != nullptr && m_storage->BranchExist(name) && m_storage->RemoveBranch(name);
}

}  // namespace TalVcs
