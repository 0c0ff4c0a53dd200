# Sources of this area are added to tvx_core here.
