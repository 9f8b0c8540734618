// Parts of a register, through a copy. Included by the register sets that have no masked access.

ZEL_INLINE Reg LoadPart(const unsigned char* p, std::size_t n) {
  unsigned char bytes[sizeof(Reg)] = {};
  std::memcpy(bytes, p, n);
  return Load(bytes);
}
ZEL_INLINE void StorePart(unsigned char* p, Reg v, std::size_t n) {
  unsigned char bytes[sizeof(Reg)];
  Store(bytes, v);
  std::memcpy(p, bytes, n);
}
