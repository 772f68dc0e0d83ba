#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "filemanager/FileUtil.h"

namespace harbor {

// The shape of a browsable item, local or not.
class ModelObject {
 public:
  virtual ~ModelObject() = default;

  virtual std::uint64_t totalBytes() const = 0;
  virtual std::string filename() const = 0;
  virtual std::string path() const = 0;
  virtual FileUtil::Date lastModifiedDate() const = 0;
  virtual std::string URL() const = 0;
  virtual bool isDirectory() const = 0;
  virtual const std::vector<std::shared_ptr<ModelObject>>& childrens() const = 0;
  virtual void addChild(std::shared_ptr<ModelObject> child) = 0;
  virtual void removeAllChildrens() = 0;
  // The parent is not owned.
  virtual void setParent(ModelObject* parent) = 0;
  virtual ModelObject* parent() const = 0;
  virtual void setIdentifier(std::string identifier) = 0;
  virtual const std::string& identifier() const = 0;
  virtual std::string fullpath() const = 0;
  virtual std::string parentPath() const = 0;
  virtual std::string fileSystemPath() const = 0;
  // <0, 0, >0 as the receiver sorts before, with or after `other`.
  virtual int compare(const ModelObject& other) const = 0;
  virtual bool isShared() const = 0;
  virtual std::string accessUsers() const = 0;
  virtual std::optional<std::string> subtitle() const { return std::nullopt; }
};

// The parent link of items that live in a tree of their own.
class BaseModeObject : public ModelObject {
 public:
  void setParent(ModelObject* parent) override { _parent = parent; }
  ModelObject* parent() const override { return _parent; }
  // The ancestors' names, outermost first, joined by "/"; "/" for none.
  std::string parentPath() const override;

 protected:
  ModelObject* _parent = nullptr;
};

// A local file or folder as a tree node. Its kind and size are read once,
// when it is made; a link is an item of its own, never its target.
class FileListItem : public ModelObject {
 public:
  explicit FileListItem(std::string path);  // initWithPath

  std::uint64_t totalBytes() const override { return _totalBytes; }
  std::string filename() const override;
  std::string path() const override { return _path; }
  FileUtil::Date lastModifiedDate() const override;
  std::string URL() const override;
  bool isDirectory() const override { return _isDirectory; }
  const std::vector<std::shared_ptr<ModelObject>>& childrens() const override { return _childrens; }
  // The child's parent becomes this item, its parent id this item's id.
  void addChild(std::shared_ptr<ModelObject> child) override;
  void removeAllChildrens() override { _childrens.clear(); }
  void setParent(ModelObject* parent) override { _parent = parent; }
  ModelObject* parent() const override { return _parent; }
  void setIdentifier(std::string identifier) override { _identifier = std::move(identifier); }
  const std::string& identifier() const override { return _identifier; }
  std::string fullpath() const override { return _path; }
  std::string parentPath() const override;
  std::string fileSystemPath() const override { return _path; }
  // By file name, case-sensitive.
  int compare(const ModelObject& other) const override;
  bool isShared() const override { return false; }
  std::string accessUsers() const override { return {}; }

  const std::string& parentid() const { return _parentid; }
  void setParentid(std::string id) { _parentid = std::move(id); }
  bool isNew() const { return _isNew; }
  void setIsNew(bool isNew) { _isNew = isNew; }

  bool operator==(const FileListItem& other) const { return _path == other._path; }

 private:
  bool _isDirectory = false;
  bool _isNew = false;
  std::uint64_t _totalBytes = 0;
  std::string _path;
  std::vector<std::shared_ptr<ModelObject>> _childrens;
  ModelObject* _parent = nullptr;
  std::string _identifier;
  std::string _parentid;
};

}  // namespace harbor
