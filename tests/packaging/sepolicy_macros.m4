dnl The platform's policy macros that the rules use, and what the rules require of its
dnl policy, so that they compile by themselves.
divert(-1)
define(`r_file_perms', `{ getattr open read ioctl lock map watch watch_reads }')
define(`w_file_perms', `{ open append write lock map }')
define(`create_file_perms', `{ create rename setattr unlink getattr open read ioctl lock map watch watch_reads append write }')
define(`r_dir_perms', `{ open getattr read search ioctl lock watch watch_reads }')
define(`w_dir_perms', `{ open search write add_name remove_name lock }')
define(`r_dir_file', `allow $1 $2:dir r_dir_perms;
allow $1 $2:{ file lnk_file } r_file_perms;')
define(`get_prop', `allow $1 $2:file { getattr open read map };')
define(`vendor_internal_prop', `type $1, property_type;')
define(`userdebug_or_eng', `$1')
divert(0)dnl
module kelda 1.0;
require {
  type hal_audio_default;
  attribute file_type;
  attribute data_file_type;
  attribute property_type;
  class dir { open getattr read search ioctl lock watch watch_reads write add_name remove_name };
  class file { create rename setattr unlink getattr open read ioctl lock map watch watch_reads append write };
  class lnk_file { getattr open read ioctl lock map watch watch_reads };
}
