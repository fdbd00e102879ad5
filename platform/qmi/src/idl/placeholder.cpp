// Placeholder so the target exists until its first real source lands; delete it then.
