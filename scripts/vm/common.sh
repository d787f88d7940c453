# Shared by build-initramfs and run-tests (sourced, not run).
#
# The guest kernel is the Debian kernel package's /boot/vmlinuz-<version> with its
# /lib/modules/<version>. HAVREL_VM_ROOT (default /) is where those two folders are looked for,
# so a kernel package unpacked with `dpkg-deb -x` into a folder works as well as an installed one.
# HAVREL_VM_KERNEL picks a version; otherwise the newest one that has both is used.

vm_root=${HAVREL_VM_ROOT:-/}
vm_root=${vm_root%/}

# Prints the chosen kernel version, or nothing.
vm_kernel_version() {
  if [[ -n "${HAVREL_VM_KERNEL:-}" ]]; then
    [[ -r "$vm_root/boot/vmlinuz-$HAVREL_VM_KERNEL" && -d "$vm_root/lib/modules/$HAVREL_VM_KERNEL" ]] \
      && echo "$HAVREL_VM_KERNEL"
    return 0
  fi
  local image version best=
  for image in "$vm_root"/boot/vmlinuz-*; do
    [[ -r "$image" ]] || continue
    version=${image##*/vmlinuz-}
    [[ -d "$vm_root/lib/modules/$version/kernel" ]] || continue
    if [[ -z "$best" ]] || [[ $(printf '%s\n%s\n' "$best" "$version" | sort -V | tail -n1) == "$version" ]]; then
      best=$version
    fi
  done
  [[ -n "$best" ]] && echo "$best"
  return 0
}
